// The library's CRC-32: most significant bit first over 0x04C11DB7. Eight tables take eight bytes
// a step, each table the one before shifted on by a zero byte. On processors with carry-less
// multiplication, long runs are first folded 64 bytes a step into 16 bytes with the same
// remainder, which the tables then finish.
#include "BPE.h"

#include <cstdint>

#if (defined(__x86_64__) || defined(__i386__)) && defined(__GNUC__)
#include <immintrin.h>
#define CRC_FOLDING 1
#endif

namespace Kiv
{
namespace
{
const uint32_t polynomial = 0x04C11DB7u;
const unsigned slices = 8;

struct CrcTables
{
    uint32_t table[slices][256];
};

constexpr CrcTables MakeTables()
{
    CrcTables tables{};
    for (uint32_t i = 0; i < 256; ++i)
    {
        uint32_t crc = i << 24;
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc << 1) ^ ((crc & 0x80000000u) ? polynomial : 0);
        tables.table[0][i] = crc;
    }
    for (unsigned k = 1; k < slices; ++k)
        for (uint32_t i = 0; i < 256; ++i)
        {
            const uint32_t before = tables.table[k - 1][i];
            tables.table[k][i] = (before << 8) ^ tables.table[0][before >> 24];
        }
    return tables;
}

constexpr CrcTables tables = MakeTables();

uint32_t BigEndian32(const unsigned char * in)
{
    return static_cast<uint32_t>(in[0]) << 24 | static_cast<uint32_t>(in[1]) << 16 |
           static_cast<uint32_t>(in[2]) << 8 | in[3];
}

// The register after `length` more bytes, without the inversions.
uint32_t Update(uint32_t crc, const unsigned char * in, unsigned long length)
{
    const auto & t = tables.table;
    for (; length >= slices; length -= slices, in += slices)
    {
        const uint32_t x = crc ^ BigEndian32(in);
        crc = t[7][x >> 24] ^ t[6][(x >> 16) & 0xFF] ^ t[5][(x >> 8) & 0xFF] ^ t[4][x & 0xFF] ^ t[3][in[4]] ^
              t[2][in[5]] ^ t[1][in[6]] ^ t[0][in[7]];
    }
    for (; length; --length)
        crc = (crc << 8) ^ t[0][(crc >> 24) ^ *in++];
    return crc;
}

#ifdef CRC_FOLDING
// x^n mod P, bit i standing for x^i.
constexpr uint32_t PowerOfX(unsigned n)
{
    uint32_t r = 1;
    for (unsigned i = 0; i < n; ++i)
        r = (r << 1) ^ ((r & 0x80000000u) ? polynomial : 0);
    return r;
}

const unsigned long foldMinimum = 128;
constexpr uint32_t x128 = PowerOfX(128);
constexpr uint32_t x192 = PowerOfX(192);
constexpr uint32_t x512 = PowerOfX(512);
constexpr uint32_t x576 = PowerOfX(576);

// A block X of 128 bits moved on by `distance` bits: its high half times x^(distance + 64) and
// its low half times x^distance, both reduced, which keeps the remainder.
__attribute__((target("pclmul,ssse3"))) inline __m128i Fold(__m128i x, __m128i powers, __m128i next)
{
    return _mm_xor_si128(
        _mm_xor_si128(_mm_clmulepi64_si128(x, powers, 0x11), _mm_clmulepi64_si128(x, powers, 0x00)), next);
}

// Loads 16 bytes with the first byte in the top bits, the order in which the register takes them.
__attribute__((target("pclmul,ssse3"))) inline __m128i Load(const unsigned char * in, __m128i reverse)
{
    return _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i *>(in)), reverse);
}

__attribute__((target("pclmul,ssse3"))) uint32_t UpdateFolding(uint32_t crc, const unsigned char * in,
                                                               unsigned long length)
{
    const __m128i reverse = _mm_set_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
    const __m128i by512 = _mm_set_epi64x(x576, x512);
    const __m128i by128 = _mm_set_epi64x(x192, x128);
    // The register joins the message's first 32 bits.
    __m128i x0 = _mm_xor_si128(Load(in, reverse), _mm_set_epi32(static_cast<int>(crc), 0, 0, 0));
    __m128i x1 = Load(in + 16, reverse);
    __m128i x2 = Load(in + 32, reverse);
    __m128i x3 = Load(in + 48, reverse);
    in += 64;
    length -= 64;
    for (; length >= 64; length -= 64, in += 64)
    {
        x0 = Fold(x0, by512, Load(in, reverse));
        x1 = Fold(x1, by512, Load(in + 16, reverse));
        x2 = Fold(x2, by512, Load(in + 32, reverse));
        x3 = Fold(x3, by512, Load(in + 48, reverse));
    }
    __m128i x = Fold(Fold(Fold(x0, by128, x1), by128, x2), by128, x3);
    for (; length >= 16; length -= 16, in += 16)
        x = Fold(x, by128, Load(in, reverse));
    alignas(16) unsigned char rest[16];
    _mm_store_si128(reinterpret_cast<__m128i *>(rest), _mm_shuffle_epi8(x, reverse));
    return Update(Update(0, rest, sizeof(rest)), in, length);
}

bool CanFold()
{
    static const bool supported = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("ssse3");
    return supported;
}
#endif
} // namespace

unsigned long Crc::Calc(const void * data, unsigned long length, unsigned long crcSoFar)
{
    if (length == 0)
        return crcSoFar;
    const auto * in = static_cast<const unsigned char *>(data);
    const uint32_t start = ~static_cast<uint32_t>(crcSoFar);
#ifdef CRC_FOLDING
    if (length >= foldMinimum && CanFold())
        return ~UpdateFolding(start, in, length);
#endif
    return ~Update(start, in, length);
}
} // namespace Kiv
