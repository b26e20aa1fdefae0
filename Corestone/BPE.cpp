// Byte-pair encoding. The coder replaces the most frequent pair of a block by a code the block
// does not use, again and again, and writes the pair table before the block; the decoder expands
// codes through a per-block table of their expansions.
#include "BPE.h"

#include "Alloc.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#if defined(__SSE2__) || defined(_M_X64)
#include <emmintrin.h>
#define BPE_SSE2 1
#endif

namespace Kiv
{
namespace
{
const unsigned blockBytes = 2048;
const unsigned hashSlots = 4096;
const unsigned maxDistinct = 210;
const unsigned firstFreeCode = 254;
const unsigned minPairCount = 3;

// The coder's working store, one allocation per call.
struct CoderStore
{
    unsigned char block[blockBytes];
    unsigned char left[256];
    // For a pair code its right byte; for a literal whether it occurred in the block.
    unsigned char right[256];
    // Each slot's pair, left byte low: one comparison a probe.
    uint16_t slotPair[hashSlots];
    unsigned char count[hashSlots];
    uint32_t size;
};
static_assert(sizeof(CoderStore) == 14852, "the working store is one block of 14,852 bytes");

// Answers the first slot holding the highest count, or hashSlots when no count reaches `least`.
unsigned BestSlot(const unsigned char * count, unsigned least)
{
#ifdef BPE_SSE2
    // The highest count of each group of 64 slots (in 16 lanes), so that the second pass finds
    // the first group holding the best count before it looks at single slots.
    const unsigned groups = hashSlots / 64;
    unsigned char groupTop[groups][16];
    __m128i top = _mm_setzero_si128();
    for (unsigned g = 0; g < groups; ++g)
    {
        const auto * at = reinterpret_cast<const __m128i *>(count + 64 * g);
        const __m128i a = _mm_max_epu8(_mm_loadu_si128(at), _mm_loadu_si128(at + 1));
        const __m128i b = _mm_max_epu8(_mm_loadu_si128(at + 2), _mm_loadu_si128(at + 3));
        const __m128i group = _mm_max_epu8(a, b);
        _mm_storeu_si128(reinterpret_cast<__m128i *>(groupTop[g]), group);
        top = _mm_max_epu8(top, group);
    }
    top = _mm_max_epu8(top, _mm_srli_si128(top, 8));
    top = _mm_max_epu8(top, _mm_srli_si128(top, 4));
    top = _mm_max_epu8(top, _mm_srli_si128(top, 2));
    top = _mm_max_epu8(top, _mm_srli_si128(top, 1));
    const unsigned best = static_cast<unsigned>(_mm_cvtsi128_si32(top)) & 0xFF;
    if (best < least)
        return hashSlots;
    const __m128i wanted = _mm_set1_epi8(static_cast<char>(best));
    unsigned g = 0;
    while (!_mm_movemask_epi8(
        _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(groupTop[g])), wanted)))
        ++g;
    for (unsigned i = 64 * g;; i += 16)
    {
        const __m128i same =
            _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(count + i)), wanted);
        const unsigned mask = static_cast<unsigned>(_mm_movemask_epi8(same));
        if (mask)
            return i + static_cast<unsigned>(__builtin_ctz(mask));
    }
#else
    unsigned bestSlot = hashSlots;
    unsigned best = least - 1;
    for (unsigned i = 0; i < hashSlots; ++i)
    {
        if (count[i] > best)
        {
            best = count[i];
            bestSlot = i;
        }
    }
    return bestSlot;
#endif
}

class Coder
{
public:
    explicit Coder(CoderStore & store) : s(store) {}

    unsigned Fill(const unsigned char * source, unsigned long length);
    void Pack();
    // Answers the end of the written block, or null when it would reach `end`.
    unsigned char * Write(unsigned char * out, const unsigned char * end) const;

private:
    unsigned Lookup(unsigned a, unsigned b);
    void Bump(unsigned a, unsigned b)
    {
        unsigned char & count = s.count[Lookup(a, b)];
        if (count < 255)
            ++count;
    }
    void Drop(unsigned a, unsigned b)
    {
        unsigned char & count = s.count[Lookup(a, b)];
        if (count > 1)
            --count;
    }
    void Replace(unsigned left, unsigned right, unsigned code);

    CoderStore & s;
};

// The pair's slot: its own, or the first free one on its probe chain, which it then claims.
unsigned Coder::Lookup(unsigned a, unsigned b)
{
    unsigned slot = ((b << 5) ^ a) & (hashSlots - 1);
    const auto pair = static_cast<uint16_t>(a | b << 8);
    while (s.slotPair[slot] != pair && s.count[slot] != 0)
        slot = (slot + 1) & (hashSlots - 1);
    s.slotPair[slot] = pair;
    return slot;
}

unsigned Coder::Fill(const unsigned char * source, unsigned long length)
{
    memset(s.count, 0, sizeof(s.count));
    for (unsigned c = 0; c < 256; ++c)
    {
        s.left[c] = static_cast<unsigned char>(c);
        s.right[c] = 0;
    }
    unsigned size = 0;
    unsigned distinct = 0;
    while (size < blockBytes && distinct < maxDistinct && size < length)
    {
        const unsigned char c = source[size];
        if (size > 0)
            Bump(s.block[size - 1], c);
        s.block[size++] = c;
        if (!s.right[c])
        {
            s.right[c] = 1;
            ++distinct;
        }
    }
    s.size = size;
    return size;
}

// Bit i set when the pair starts at block[base + i]. Reads up to block[base + 16], which may lie
// past the block's 2,048 bytes but never past the working store that follows it; such positions
// are masked off by the caller.
unsigned PairMask(const unsigned char * block, unsigned base, unsigned left, unsigned right)
{
#ifdef BPE_SSE2
    const __m128i first = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block + base));
    const __m128i second = _mm_loadu_si128(reinterpret_cast<const __m128i *>(block + base + 1));
    const __m128i both = _mm_and_si128(_mm_cmpeq_epi8(first, _mm_set1_epi8(static_cast<char>(left))),
                                       _mm_cmpeq_epi8(second, _mm_set1_epi8(static_cast<char>(right))));
    return static_cast<unsigned>(_mm_movemask_epi8(both));
#else
    unsigned mask = 0;
    for (unsigned i = 0; i < 16; ++i)
        mask |= static_cast<unsigned>(block[base + i] == left && block[base + i + 1] == right) << i;
    return mask;
#endif
}

// Replaces each occurrence of the pair, left to right and not overlapping, by the code, keeping
// the counts of the neighbouring pairs up to date.
void Coder::Replace(unsigned left, unsigned right, unsigned code)
{
    unsigned char * block = s.block;
    const unsigned size = s.size;
    const unsigned last = size - 1;
    unsigned read = 0;
    unsigned written = 0;
    for (unsigned base = 0; base < last; base += 32)
    {
        uint32_t mask = PairMask(block, base, left, right) | PairMask(block, base + 16, left, right) << 16;
        if (last - base < 32)
            mask &= (uint32_t(1) << (last - base)) - 1;
        for (; mask; mask &= mask - 1)
        {
            const unsigned at = base + static_cast<unsigned>(__builtin_ctz(mask));
            if (at < read)
                continue;
            memmove(block + written, block + read, at - read);
            written += at - read;
            if (at > 0)
            {
                Drop(block[written - 1], left);
                Bump(block[written - 1], code);
            }
            if (at + 2 < size)
            {
                Drop(right, block[at + 2]);
                Bump(code, block[at + 2]);
            }
            block[written++] = static_cast<unsigned char>(code);
            read = at + 2;
        }
    }
    memmove(block + written, block + read, size - read);
    s.size = written + size - read;
}

void Coder::Pack()
{
    unsigned code = firstFreeCode + 1;
    for (;;)
    {
        do
            --code;
        while (code != ~0u && (s.left[code] != code || s.right[code]));
        if (code == ~0u)
            return;
        const unsigned slot = BestSlot(s.count, minPairCount);
        if (slot == hashSlots)
            return;
        const unsigned left = s.slotPair[slot] & 0xFF;
        const unsigned right = s.slotPair[slot] >> 8;
        Replace(left, right, code);
        s.left[code] = static_cast<unsigned char>(left);
        s.right[code] = static_cast<unsigned char>(right);
        // 1, not 0: a free slot would cut the probe chains that pass through it.
        s.count[Lookup(left, right)] = 1;
    }
}

unsigned char * Coder::Write(unsigned char * out, const unsigned char * end) const
{
    unsigned c = 0;
    while (c < 256)
    {
        if (s.left[c] == c)
        {
            unsigned skipped = 1;
            ++c;
            while (skipped < 127 && c < 256 && s.left[c] == c)
            {
                ++skipped;
                ++c;
            }
            if (end - out <= 1)
                return nullptr;
            *out++ = static_cast<unsigned char>(skipped + 127);
            continue;
        }
        const unsigned first = c;
        unsigned extra = 0;
        ++c;
        while ((extra < 127 && c < 256 && s.left[c] != c) ||
               (extra < 125 && c < 254 && s.left[c + 1] != c + 1))
        {
            ++extra;
            ++c;
        }
        unsigned bytes = 1;
        for (unsigned code = first; code < c; ++code)
            bytes += s.left[code] != code ? 2 : 1;
        if (end - out <= static_cast<ptrdiff_t>(bytes))
            return nullptr;
        *out++ = static_cast<unsigned char>(extra);
        for (unsigned code = first; code < c; ++code)
        {
            *out++ = s.left[code];
            if (s.left[code] != code)
                *out++ = s.right[code];
        }
    }
    if (end - out <= static_cast<ptrdiff_t>(s.size) + 2)
        return nullptr;
    *out++ = static_cast<unsigned char>(s.size >> 8);
    *out++ = static_cast<unsigned char>(s.size);
    memcpy(out, s.block, s.size);
    return out + s.size;
}

// The decoder's table: for each code its pair, its expanded length (0 for a code that expands
// into itself, saturated far above any destination) and the first bytes of its expansion.
const unsigned shortExpansion = 16;
const uint64_t lengthCap = uint64_t(1) << 62;

struct DecoderTable
{
    unsigned char left[256];
    unsigned char right[256];
    unsigned char state[256];
    uint64_t length[256];
    unsigned char text[256][shortExpansion];
    unsigned char pairs[256];
    unsigned pairCount;
};

enum : unsigned char
{
    RESOLVED,
    PENDING,
    ACTIVE
};

void MakeLiteral(DecoderTable & table, unsigned c)
{
    table.left[c] = static_cast<unsigned char>(c);
    table.state[c] = RESOLVED;
    table.length[c] = 1;
    table.text[c][0] = static_cast<unsigned char>(c);
}

void ResetTable(DecoderTable & table)
{
    for (unsigned c = 0; c < 256; ++c)
        MakeLiteral(table, c);
    table.pairCount = 0;
}

// Every code back to a literal, touching only the codes the last block paired.
void ClearPairs(DecoderTable & table)
{
    for (unsigned i = 0; i < table.pairCount; ++i)
        MakeLiteral(table, table.pairs[i]);
    table.pairCount = 0;
}

// Depth is bounded by the 256 codes: a code met again on its own path is a loop.
uint64_t Resolve(DecoderTable & table, unsigned c)
{
    if (table.state[c] == RESOLVED)
        return table.length[c];
    if (table.state[c] == ACTIVE)
        return 0;
    table.state[c] = ACTIVE;
    const unsigned a = table.left[c];
    const unsigned b = table.right[c];
    const uint64_t leftLength = Resolve(table, a);
    const uint64_t rightLength = Resolve(table, b);
    uint64_t length = 0;
    if (leftLength && rightLength)
    {
        length = leftLength + rightLength < lengthCap ? leftLength + rightLength : lengthCap;
        unsigned char joined[2 * shortExpansion];
        memcpy(joined, table.text[a], shortExpansion);
        const uint64_t head = leftLength < shortExpansion ? leftLength : shortExpansion;
        memcpy(joined + head, table.text[b], shortExpansion);
        memcpy(table.text[c], joined, shortExpansion);
    }
    table.length[c] = length;
    table.state[c] = RESOLVED;
    return length;
}

// Reads one block's pair table; false when the stream ends inside it or a run passes code 255.
bool ReadPairs(DecoderTable & table, const unsigned char *& in, const unsigned char * end)
{
    ClearPairs(table);
    unsigned c = 0;
    while (c < 256)
    {
        if (in == end)
            return false;
        const unsigned n = *in++;
        if (n >= 128)
        {
            c += n - 127;
            if (c > 256)
                return false;
            continue;
        }
        if (c + n + 1 > 256)
            return false;
        for (const unsigned last = c + n; c <= last; ++c)
        {
            if (in == end)
                return false;
            const unsigned char left = *in++;
            table.left[c] = left;
            if (left == c)
                continue;
            if (in == end)
                return false;
            table.right[c] = *in++;
            table.state[c] = PENDING;
            table.pairs[table.pairCount++] = static_cast<unsigned char>(c);
        }
    }
    for (unsigned i = 0; i < table.pairCount; ++i)
        Resolve(table, table.pairs[i]);
    return true;
}

// Writes a code's expansion; `sure` lets a short one be copied as a whole 16-byte slot, which
// needs that much room left.
class Expander
{
public:
    Expander(const DecoderTable & table, unsigned char * out, uint64_t room, bool sure)
        : table(table), out(out), room(room), sure(sure)
    {
    }

    unsigned char * Out() const { return out; }

    bool Code(unsigned c)
    {
        const uint64_t length = table.length[c];
        if (length == 0 || length > room)
            return false;
        if (length <= shortExpansion)
            Short(c, static_cast<unsigned>(length));
        else
            Long(c);
        return true;
    }

private:
    void Short(unsigned c, unsigned length)
    {
        if (sure && room >= shortExpansion)
            memcpy(out, table.text[c], shortExpansion);
        else
            memcpy(out, table.text[c], length);
        out += length;
        room -= length;
    }
    // Acyclic codes nest at most 256 deep, each level leaving one right half waiting.
    void Long(unsigned c)
    {
        unsigned char stack[2 * 256 + 2];
        unsigned depth = 0;
        stack[depth++] = static_cast<unsigned char>(c);
        while (depth)
        {
            const unsigned code = stack[--depth];
            const uint64_t length = table.length[code];
            if (length <= shortExpansion)
            {
                Short(code, static_cast<unsigned>(length));
                continue;
            }
            stack[depth++] = table.right[code];
            stack[depth++] = table.left[code];
        }
    }

    const DecoderTable & table;
    unsigned char * out;
    uint64_t room;
    bool sure;
};

// Expands blocks while coded bytes remain; `produced` counts what was written even on failure.
bool Expand(unsigned char * destination, uint64_t capacity, bool sure, const unsigned char * in,
            unsigned long length, unsigned long & produced)
{
    DecoderTable table;
    ResetTable(table);
    const unsigned char * end = in + length;
    Expander expander(table, destination, capacity, sure);
    bool good = true;
    while (good && in != end)
    {
        if (!ReadPairs(table, in, end) || end - in < 2)
        {
            good = false;
            break;
        }
        const unsigned coded = static_cast<unsigned>(in[0]) << 8 | in[1];
        in += 2;
        const bool whole = static_cast<unsigned long>(end - in) >= coded;
        const unsigned char * stop = whole ? in + coded : end;
        while (in != stop && expander.Code(*in))
            ++in;
        good = whole && in == stop;
    }
    produced = static_cast<unsigned long>(expander.Out() - destination);
    return good;
}
} // namespace

unsigned long BPE::Comp(void * destination, const void * source, unsigned long length)
{
    auto * out = static_cast<unsigned char *>(destination);
    const auto * in = static_cast<const unsigned char *>(source);
    if (length == 0)
        return 0;
    auto * store = static_cast<CoderStore *>(Alloc::New(sizeof(CoderStore)));
    Coder coder(*store);
    const unsigned char * end = out + length;
    unsigned long done = 0;
    while (out && done < length)
    {
        done += coder.Fill(in + done, length - done);
        coder.Pack();
        out = coder.Write(out, end);
    }
    Alloc::Delete(store);
    if (!out)
    {
        memmove(destination, source, length);
        return length;
    }
    return static_cast<unsigned long>(out - static_cast<unsigned char *>(destination));
}

unsigned long BPE::Decomp(void * destination, const void * source, unsigned long length)
{
    unsigned long produced = 0;
    Expand(static_cast<unsigned char *>(destination), lengthCap, false,
           static_cast<const unsigned char *>(source), length, produced);
    return produced;
}

unsigned long BPE::Decomp(void * destination, unsigned long capacity, const void * source,
                          unsigned long length)
{
    unsigned long produced = 0;
    if (!Expand(static_cast<unsigned char *>(destination), capacity, true,
                static_cast<const unsigned char *>(source), length, produced))
        return BAD_STREAM;
    return produced;
}
} // namespace Kiv
