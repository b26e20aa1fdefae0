// The row operations of the bitmap formats. Blending is integer arithmetic with shifts by 8: two channels
// share one 32-bit multiply (red and blue 16 bits apart), and each channel's product stays below 2^16, so the
// packed result is exactly the per-channel one.
#include "BitmapRows.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace Kiv
{
namespace
{
using Byte = unsigned char;
using Word = std::uint32_t;

constexpr Word opaque = 0xFF000000u;

// Every target is little-endian, so a pixel's bytes are its word as it stands in memory.
#if defined(__BYTE_ORDER__) && __BYTE_ORDER__ != __ORDER_LITTLE_ENDIAN__
#error "pixel words are read in little-endian order"
#endif
template <unsigned int size>
inline Word Get(const Byte * p)
{
    Word v = 0;
    std::memcpy(&v, p, size);
    return v;
}
template <unsigned int size>
inline void Put(Byte * p, Word v)
{
    std::memcpy(p, &v, size);
}
inline Word Get16(const Byte * p)
{
    return Get<2>(p);
}
inline Word Get24(const Byte * p)
{
    return Get<3>(p);
}
inline Word Get32(const Byte * p)
{
    return Get<4>(p);
}
inline void Put16(Byte * p, Word v)
{
    Put<2>(p, v);
}
inline void Put24(Byte * p, Word v)
{
    Put<3>(p, v);
}
inline void Put32(Byte * p, Word v)
{
    Put<4>(p, v);
}

// 5-6-5 to 8 bits per channel, the low bits left 0.
inline Word Expand565(Word p)
{
    return opaque | (p >> 11) << 19 | ((p >> 5) & 63) << 10 | (p & 31) << 3;
}
inline Word Pack565(Word c)
{
    return ((c >> 19) & 31) << 11 | ((c >> 10) & 63) << 5 | ((c >> 3) & 31);
}

// (channel x weight) >> 8 for blue, green and red at once.
inline Word Scale(Word c, Word weight)
{
    return (((c & 0xFF00FFu) * weight >> 8) & 0xFF00FFu) | (((c & 0xFF00u) * weight >> 8) & 0xFF00u);
}

// 32 over 32 for a source alpha of 1 to 254.
inline Word Over(Word d, Word s)
{
    if (d < 0x1000000u)
        return s;
    Word w = (s >> 24) + 1;
    const Word da = d >> 24;
    Word alpha = da;
    if (da < 255)
    {
        // The negated product shifted arithmetically: minus its quotient rounded up.
        alpha = (0u - (((256 - w) * (255 - da) + 255) >> 8)) & 255;
        w = (w + 255 - da) >> 1;
    }
    return alpha << 24 | (Scale(d, 256 - w) + Scale(s, w));
}

// (d x dWeight >> 8) + (s x sWeight >> 8) on the 5- and 6-bit channels of a 5-6-5 pixel; the
// source part arrives already weighted.
inline Word Mix565(Word d, Word dWeight, Word r, Word g, Word b)
{
    return ((((d >> 11) & 31) * dWeight >> 8) + r) << 11 | ((((d >> 5) & 63) * dWeight >> 8) + g) << 5 |
           (((d & 31) * dWeight >> 8) + b);
}
inline Word Mix565(Word d, Word s, Word dWeight, Word sWeight)
{
    return Mix565(d, dWeight, ((s >> 19) & 31) * sWeight >> 8, ((s >> 10) & 63) * sWeight >> 8,
                  ((s >> 3) & 31) * sWeight >> 8);
}

void NoRow(Byte *, const Byte *, unsigned int) {}
void NoSpan(Byte *, PackedColor, unsigned int, unsigned int) {}

template <unsigned int size>
void Copy(Byte * dst, const Byte * src, unsigned int n)
{
    // memmove: a bitmap may copy rows within itself.
    std::memmove(dst, src, std::size_t(n) * size);
}

void Expand24To32(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 4, src += 3)
        Put32(dst, opaque | Get24(src));
}
void Expand565To32(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 4, src += 2)
        Put32(dst, Expand565(Get16(src)));
}
void Expand565To24(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 3, src += 2)
        Put24(dst, Expand565(Get16(src)));
}
void Pack24To565(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 2, src += 3)
        Put16(dst, Pack565(Get24(src)));
}

#if defined(__SSE2__)
// The row blends four or eight pixels at a time. Each lane computes exactly the scalar arithmetic
// above, in 16-bit lanes whose products stay below 2^16; the scalar loops finish the rows.
namespace Wide
{
inline __m128i Select(__m128i mask, __m128i yes, __m128i no)
{
    return _mm_or_si128(_mm_and_si128(mask, yes), _mm_andnot_si128(mask, no));
}
inline __m128i Scale16(__m128i x, __m128i weight)
{
    return _mm_srli_epi16(_mm_mullo_epi16(x, weight), 8);
}
// A weight per 32-bit pixel spread over the pixel's four 16-bit channels: pixels 0-1, then 2-3.
inline __m128i SpreadLow(__m128i w)
{
    const __m128i both = _mm_or_si128(w, _mm_slli_epi32(w, 16));
    return _mm_unpacklo_epi32(both, both);
}
inline __m128i SpreadHigh(__m128i w)
{
    const __m128i both = _mm_or_si128(w, _mm_slli_epi32(w, 16));
    return _mm_unpackhi_epi32(both, both);
}
// Scale(d, k) + Scale(s, w) on every byte of four pixels; k + w <= 256, so no byte saturates.
inline __m128i Mix(__m128i d, __m128i s, __m128i k, __m128i w)
{
    const __m128i zero = _mm_setzero_si128();
    const __m128i lo = _mm_add_epi16(Scale16(_mm_unpacklo_epi8(d, zero), SpreadLow(k)),
                                     Scale16(_mm_unpacklo_epi8(s, zero), SpreadLow(w)));
    const __m128i hi = _mm_add_epi16(Scale16(_mm_unpackhi_epi8(d, zero), SpreadHigh(k)),
                                     Scale16(_mm_unpackhi_epi8(s, zero), SpreadHigh(w)));
    return _mm_packus_epi16(lo, hi);
}
inline __m128i Over(__m128i d, __m128i s)
{
    const __m128i zero = _mm_setzero_si128(), ff = _mm_set1_epi32(255), c256 = _mm_set1_epi32(256);
    const __m128i a = _mm_srli_epi32(s, 24), da = _mm_srli_epi32(d, 24);
    const __m128i w0 = _mm_add_epi32(a, _mm_set1_epi32(1)), inverse = _mm_sub_epi32(ff, da);
    const __m128i product = _mm_mullo_epi16(_mm_sub_epi32(c256, w0), inverse);
    const __m128i covered =
        _mm_and_si128(_mm_sub_epi32(zero, _mm_srli_epi32(_mm_add_epi32(product, ff), 8)), ff);
    const __m128i opaqueDst = _mm_cmpeq_epi32(da, ff);
    const __m128i w = Select(opaqueDst, w0, _mm_srli_epi32(_mm_add_epi32(w0, inverse), 1));
    const __m128i alpha = Select(opaqueDst, ff, covered);
    const __m128i mixed =
        _mm_or_si128(_mm_and_si128(Mix(d, s, _mm_sub_epi32(c256, w), w), _mm_set1_epi32(0xFFFFFF)),
                     _mm_slli_epi32(alpha, 24));
    const __m128i takeSource = _mm_or_si128(_mm_cmpeq_epi32(a, ff), _mm_cmpeq_epi32(da, zero));
    return Select(_mm_cmpeq_epi32(a, zero), d, Select(takeSource, s, mixed));
}
// The source weight of the blends for 16-bit alphas a: a + 1, or 0 where a is 0, so that the
// destination weight 256 - w keeps the destination exactly.
inline __m128i Weight16(__m128i a)
{
    return _mm_add_epi16(_mm_add_epi16(a, _mm_set1_epi16(1)), _mm_cmpeq_epi16(a, _mm_setzero_si128()));
}
// Scale(d, 256 - w) + Scale(s, w) on the channels of two pixels in 16-bit lanes, with the weight
// of each source pixel's alpha.
inline __m128i MixByAlpha16(__m128i d, __m128i s)
{
    const __m128i w = Weight16(_mm_shufflehi_epi16(_mm_shufflelo_epi16(s, 0xFF), 0xFF));
    return _mm_add_epi16(Scale16(d, _mm_sub_epi16(_mm_set1_epi16(256), w)), Scale16(s, w));
}
// The same for four pixels: the 24-bit blend, and the 32-bit one over opaque pixels.
inline __m128i MixByAlpha(__m128i d, __m128i s)
{
    const __m128i zero = _mm_setzero_si128();
    return _mm_packus_epi16(MixByAlpha16(_mm_unpacklo_epi8(d, zero), _mm_unpacklo_epi8(s, zero)),
                            MixByAlpha16(_mm_unpackhi_epi8(d, zero), _mm_unpackhi_epi8(s, zero)));
}
// Over a destination of four opaque pixels, a frame's usual case: the weight is a + 1 and alpha
// stays 255, and an opaque source leaves the mix unchanged (weights 0 and 256).
inline __m128i OverOpaque(__m128i d, __m128i s)
{
    return _mm_or_si128(MixByAlpha(d, s), _mm_set1_epi32(int(opaque)));
}
// A row may be blended onto itself; lanes read ahead of the scalar order only where the
// destination trails its source.
inline bool Safe(const Byte * dst, const Byte * src, unsigned int n, unsigned int srcSize)
{
    const auto d = reinterpret_cast<std::uintptr_t>(dst), s = reinterpret_cast<std::uintptr_t>(src);
    return d <= s || d >= s + std::uintptr_t(n) * srcSize;
}
// Whether four pixels are all transparent, all opaque, or neither: sprites are mostly made of
// the first two, which need no arithmetic, and frames of the second.
enum Coverage
{
    Clear,
    Opaque,
    Partial
};
inline Coverage Cover(__m128i s)
{
    const __m128i alphas = _mm_and_si128(s, _mm_set1_epi32(int(opaque)));
    if (_mm_movemask_epi8(_mm_cmpeq_epi32(alphas, _mm_setzero_si128())) == 0xFFFF)
        return Clear;
    return _mm_movemask_epi8(_mm_cmpeq_epi32(alphas, _mm_set1_epi32(int(opaque)))) == 0xFFFF ? Opaque
                                                                                             : Partial;
}
inline __m128i Load(const Byte * p)
{
    return _mm_loadu_si128(reinterpret_cast<const __m128i *>(p));
}
inline void Store(Byte * p, __m128i v)
{
    _mm_storeu_si128(reinterpret_cast<__m128i *>(p), v);
}

unsigned int Over32(Byte *& dst, const Byte *& src, unsigned int n)
{
    if (!Safe(dst, src, n, 4))
        return n;
    for (; n >= 4; n -= 4, dst += 16, src += 16)
    {
        const __m128i s = Load(src);
        const Coverage coverage = Cover(s);
        if (coverage != Clear)
        {
            const __m128i d = Load(dst);
            Store(dst, coverage == Opaque ? s : Cover(d) == Opaque ? OverOpaque(d, s) : Over(d, s));
        }
    }
    return n;
}
// Four 3-byte pixels from the first 12 of 16 bytes, one per 32-bit lane, and back (the fourth byte
// of each lane dropped).
inline __m128i Unpack24(__m128i x)
{
    const __m128i low = _mm_unpacklo_epi32(x, _mm_srli_si128(x, 3));
    const __m128i high = _mm_unpacklo_epi32(_mm_srli_si128(x, 6), _mm_srli_si128(x, 9));
    return _mm_and_si128(_mm_unpacklo_epi64(low, high), _mm_set1_epi32(0xFFFFFF));
}
inline __m128i Pack24(__m128i v)
{
    const __m128i lane = _mm_setr_epi32(0xFFFFFF, 0, 0, 0);
    return _mm_or_si128(
        _mm_or_si128(_mm_and_si128(v, lane), _mm_srli_si128(_mm_and_si128(v, _mm_slli_si128(lane, 4)), 1)),
        _mm_or_si128(_mm_srli_si128(_mm_and_si128(v, _mm_slli_si128(lane, 8)), 2),
                     _mm_srli_si128(_mm_and_si128(v, _mm_slli_si128(lane, 12)), 3)));
}
unsigned int Blend32To24(Byte *& dst, const Byte *& src, unsigned int n)
{
    if (!Safe(dst, src, n, 4))
        return n;
    // Sixteen bytes are loaded for twelve: at least six pixels remain, so they lie inside the row.
    // Twelve are stored, as a wider store would stall the next, overlapping load.
    for (; n >= 6; n -= 4, dst += 12, src += 16)
    {
        const __m128i s = Load(src);
        const Coverage coverage = Cover(s);
        if (coverage == Clear)
            continue;
        __m128i result = s;
        if (coverage == Partial)
        {
            result = MixByAlpha(Unpack24(Load(dst)), s);
        }
        const __m128i packed = Pack24(result);
        _mm_storel_epi64(reinterpret_cast<__m128i *>(dst), packed);
        Put32(dst + 8, Word(_mm_cvtsi128_si32(_mm_srli_si128(packed, 8))));
    }
    return n;
}
// Channel c (shifted down by `shift`, `mask` wide) of eight 32-bit pixels as 16-bit lanes.
inline __m128i Channel(__m128i s0, __m128i s1, int shift, int mask)
{
    const __m128i m = _mm_set1_epi32(mask);
    return _mm_packs_epi32(_mm_and_si128(_mm_srl_epi32(s0, _mm_cvtsi32_si128(shift)), m),
                           _mm_and_si128(_mm_srl_epi32(s1, _mm_cvtsi32_si128(shift)), m));
}
unsigned int Blend32To565(Byte *& dst, const Byte *& src, unsigned int n)
{
    if (!Safe(dst, src, n, 4))
        return n;
    const __m128i m5 = _mm_set1_epi16(31), m6 = _mm_set1_epi16(63);
    for (; n >= 8; n -= 8, dst += 16, src += 32)
    {
        const __m128i s0 = Load(src), s1 = Load(src + 16), d = Load(dst);
        const __m128i w = Weight16(Channel(s0, s1, 24, 255)), k = _mm_sub_epi16(_mm_set1_epi16(256), w);
        const __m128i r =
            _mm_add_epi16(Scale16(_mm_srli_epi16(d, 11), k), Scale16(Channel(s0, s1, 19, 31), w));
        const __m128i g = _mm_add_epi16(Scale16(_mm_and_si128(_mm_srli_epi16(d, 5), m6), k),
                                        Scale16(Channel(s0, s1, 10, 63), w));
        const __m128i b = _mm_add_epi16(Scale16(_mm_and_si128(d, m5), k), Scale16(Channel(s0, s1, 3, 31), w));
        Store(dst, _mm_or_si128(_mm_or_si128(_mm_slli_epi16(r, 11), _mm_slli_epi16(g, 5)), b));
    }
    return n;
}
} // namespace Wide
#else
namespace Wide
{
inline unsigned int None(Byte *&, const Byte *&, unsigned int n)
{
    return n;
}
constexpr auto Over32 = None, Blend32To24 = None, Blend32To565 = None;
} // namespace Wide
#endif

// One pixel of each row blend: an opaque source converted to the destination's layout, and the
// mix of a source whose alpha is 1 to 254 with the destination.
inline Word Same(Word s)
{
    return s;
}
inline Word Mix24(Word d, Word s)
{
    const Word a = s >> 24;
    return Scale(d, 255 - a) + Scale(s, a + 1);
}
inline Word Mix565(Word d, Word s)
{
    const Word a = s >> 24;
    return Mix565(d, s, 255 - a, a + 1);
}

// The row blends: a transparent source pixel leaves the destination as it is. The wide form
// takes what it can of the row and leaves the rest to the pixel loop.
template <unsigned int size, Word (*opaqueForm)(Word), Word (*mix)(Word, Word),
          unsigned int (*wide)(Byte *&, const Byte *&, unsigned int)>
void BlendRow(Byte * dst, const Byte * src, unsigned int n)
{
    for (n = wide(dst, src, n); n; --n, dst += size, src += 4)
    {
        const Word s = Get32(src);
        const Word a = s >> 24;
        if (a == 255)
            Put<size>(dst, opaqueForm(s));
        else if (a != 0)
            Put<size>(dst, mix(Get<size>(dst), s));
    }
}
constexpr auto Over32 = BlendRow<4, Same, Over, Wide::Over32>;
constexpr auto Blend32To24 = BlendRow<3, Same, Mix24, Wide::Blend32To24>;
constexpr auto Blend32To565 = BlendRow<2, Pack565, Mix565, Wide::Blend32To565>;

void Store32(Byte * dst, PackedColor colour, unsigned int n, unsigned int stride)
{
    const unsigned int step = stride ? stride : 4;
    for (; n; --n, dst += step)
        Put32(dst, colour);
}
void Fill32(Byte * dst, PackedColor colour, unsigned int n, unsigned int stride)
{
    const Word a = colour.A();
    if (a == 255)
        Store32(dst, colour, n, stride);
    if (a == 0 || a == 255)
        return;
    const unsigned int step = stride ? stride : 4;
    for (; n; --n, dst += step)
        Put32(dst, Over(Get32(dst), colour));
}
void Fill24(Byte * dst, PackedColor colour, unsigned int n, unsigned int stride)
{
    const Word a = colour.A();
    const unsigned int step = stride ? stride : 3;
    if (a == 255)
    {
        for (; n; --n, dst += step)
            Put24(dst, colour);
    }
    if (a == 0 || a == 255)
        return;
    // The destination weighs 255 - a', one less than in the row blends.
    const Word part = Scale(colour, a + 1);
    for (; n; --n, dst += step)
        Put24(dst, Scale(Get24(dst), 254 - a) + part);
}
void Fill565(Byte * dst, PackedColor colour, unsigned int n, unsigned int stride)
{
    const Word a = colour.A();
    const unsigned int step = stride ? stride : 2;
    if (a == 255)
    {
        for (; n; --n, dst += step)
            Put16(dst, Pack565(colour));
    }
    if (a == 0 || a == 255)
        return;
    const Word w = a + 1;
    const Word r = ((colour >> 19) & 31) * w >> 8, g = ((colour >> 10) & 63) * w >> 8,
               b = ((colour >> 3) & 31) * w >> 8;
    for (; n; --n, dst += step)
        Put16(dst, Mix565(Get16(dst), 254 - a, r, g, b));
}

const Bitmap::RowOps none{NoRow, NoSpan, NoSpan, NoRow, NoRow, NoRow, NoRow, NoRow};
const Bitmap::RowOps rgb24{Expand24To32,  Fill24,  Fill24,      Copy<3>,
                           Expand565To24, Copy<3>, Blend32To24, Blend32To24};
const Bitmap::RowOps rgb32{Copy<4>, Store32, Fill32, Copy<4>, Expand565To32, Expand24To32, Copy<4>, Over32};
const Bitmap::RowOps rgb565{Expand565To32, Fill565,     Fill565,      Copy<2>,
                            Copy<2>,       Pack24To565, Blend32To565, Blend32To565};

const Bitmap::RowOps * const tables[] = {&none, &rgb24, &rgb32, &rgb32, &rgb565, &none};
const unsigned int sizes[] = {1, 3, 4, 4, 2, 0};
} // namespace

const Bitmap::RowOps & BitmapRows::Of(unsigned int format)
{
    return BitmapRows::Known(format) ? *tables[format] : none;
}

unsigned int BitmapRows::BytesPerPixel(unsigned int format)
{
    return sizes[format];
}
} // namespace Kiv
