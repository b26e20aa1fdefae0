// The row operations of the bitmap formats. Pixels are read and written byte by byte in
// little-endian order, so every target computes the same bytes; the compilers fold these into
// plain loads and stores. Blending is integer arithmetic with shifts by 8: two channels share one
// 32-bit multiply (red and blue 16 bits apart), and each channel's product stays below 2^16, so
// the packed result is exactly the per-channel one.
#include "BitmapRows.h"

#include <cstring>

namespace Kiv
{
namespace
{
using Byte = unsigned char;
using Word = std::uint32_t;

constexpr Word opaque = 0xFF000000u;

inline Word Get16(const Byte * p)
{
    return Word(p[0]) | Word(p[1]) << 8;
}
inline Word Get24(const Byte * p)
{
    return Word(p[0]) | Word(p[1]) << 8 | Word(p[2]) << 16;
}
inline Word Get32(const Byte * p)
{
    return Get24(p) | Word(p[3]) << 24;
}
inline void Put16(Byte * p, Word v)
{
    p[0] = Byte(v);
    p[1] = Byte(v >> 8);
}
inline void Put24(Byte * p, Word v)
{
    Put16(p, v);
    p[2] = Byte(v >> 16);
}
inline void Put32(Byte * p, Word v)
{
    Put24(p, v);
    p[3] = Byte(v >> 24);
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

void Over32(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 4, src += 4)
    {
        const Word s = Get32(src);
        const Word a = s >> 24;
        if (a == 255)
            Put32(dst, s);
        else if (a != 0)
            Put32(dst, Over(Get32(dst), s));
    }
}
void Blend32To24(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 3, src += 4)
    {
        const Word s = Get32(src);
        const Word a = s >> 24;
        if (a == 255)
            Put24(dst, s);
        else if (a != 0)
            Put24(dst, Scale(Get24(dst), 255 - a) + Scale(s, a + 1));
    }
}
void Blend32To565(Byte * dst, const Byte * src, unsigned int n)
{
    for (; n; --n, dst += 2, src += 4)
    {
        const Word s = Get32(src);
        const Word a = s >> 24;
        if (a == 255)
            Put16(dst, Pack565(s));
        else if (a != 0)
            Put16(dst, Mix565(Get16(dst), s, 255 - a, a + 1));
    }
}

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
