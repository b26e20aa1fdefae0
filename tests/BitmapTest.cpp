#include "Bitmap.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <cstring>
#include <memory>
#include <vector>

using Kiv::Bitmap;
using Kiv::PackedColor;
using Kiv::Point;
using Kiv::Rect;
using Kiv::Size;

namespace
{
// Nine pixels of `format` holding `dst` (little-endian) after `draw` worked on them: the first
// when all nine came out alike, so that the wide loops and the pixel loops agree, else a value
// no case expects.
template <typename Draw>
std::uint32_t After(Bitmap::Format format, std::uint32_t dst, Draw draw)
{
    Bitmap target(Size{9, 1}, format);
    const unsigned int size = target.GetBytesPerPixel();
    for (unsigned int i = 0; i < 9; ++i)
        std::memcpy(target.GetPtr() + i * size, &dst, size);
    draw(target);
    std::uint32_t out = 0;
    std::memcpy(&out, target.GetPtr(), size);
    for (unsigned int i = 1; i < 9; ++i)
        if (std::memcmp(target.GetPtr(), target.GetPtr() + i * size, size) != 0)
            return 0xDEADBEEFu;
    return out;
}

std::uint32_t DrawOne(Bitmap::Format format, std::uint32_t dst, std::uint32_t src, bool blend)
{
    Bitmap source(Size{9, 1}, Bitmap::ARGB32);
    source.Clear(src);
    return After(format, dst, [&](Bitmap & t) { blend ? t.Image(source) : t.CopyImage(source); });
}

std::uint32_t FillOne(Bitmap::Format format, std::uint32_t dst, PackedColor colour, bool blendSpan)
{
    return After(format, dst,
                 [&](Bitmap & t)
                 {
                     const Bitmap::RowOps & ops = t.GetRowOps();
                     (blendSpan ? ops.blendSpan : ops.fillSpan)(t.GetPtr(), colour, 9, 0);
                 });
}

// A caller's block of exactly w x h 32-bit pixels, so any write past it trips the sanitizer.
struct Block32
{
    std::vector<std::uint32_t> words;
    Bitmap bitmap;
    Block32(int w, int h, std::uint32_t first, std::uint32_t step) : words(std::size_t(w) * h)
    {
        for (std::size_t i = 0; i < words.size(); ++i)
            words[i] = first + step * std::uint32_t(i);
        bitmap.Init(Size{w, h}, w * 4, Bitmap::ARGB32, reinterpret_cast<unsigned char *>(words.data()));
    }
    std::uint32_t At(std::int64_t x, std::int64_t y) const
    {
        return words[std::size_t(y * bitmap.GetWidth() + x)];
    }
};
} // namespace

TEST(Bitmap, InitLimitsPitchAndNullPixels)
{
    Bitmap b;
    EXPECT_TRUE(b.Init(Size{4096, 1}, 0, Bitmap::ARGB32));
    EXPECT_FALSE(b.Init(Size{4097, 1}, 0, Bitmap::ARGB32));
    EXPECT_EQ(b.GetFormat(), Bitmap::Raw);
    EXPECT_FALSE(b.Init(Size{-1, 1}, 0, Bitmap::ARGB32));
    EXPECT_FALSE(b.Init(Size{1, 1}, -4, Bitmap::ARGB32));
    // The product of height and a given pitch is limited, and so is a given block size.
    EXPECT_TRUE(b.Init(Size{1, 1}, 0x1000000, Bitmap::Indexed8));
    EXPECT_FALSE(b.Init(Size{1, 1}, 0x1000001, Bitmap::Indexed8));
    EXPECT_FALSE(b.Init(Size{4, 1}, 0, Bitmap::ARGB32, nullptr, 0x1000001));
    // A given block smaller than height x pitch is refused; a larger one is kept.
    EXPECT_FALSE(b.Init(Size{4, 2}, 0, Bitmap::ARGB32, nullptr, 31));
    EXPECT_TRUE(b.Init(Size{4, 2}, 0, Bitmap::ARGB32, nullptr, 40));
    EXPECT_EQ(b.GetNumBytes(), 40u);

    b.Init(Size{10, 2}, 0, Bitmap::RGB24);
    EXPECT_EQ(b.GetPitch(), 32u);
    b.Init(Size{10, 2}, 0, Bitmap::RGB565);
    EXPECT_EQ(b.GetPitch(), 20u);

    // Zero sizes and a pitch below the width in pixels keep the geometry without pixels.
    EXPECT_FALSE(b.Init(Size{0, 5}, 0, Bitmap::ARGB32));
    EXPECT_EQ(b.GetHeight(), 5);
    EXPECT_FALSE(b.Init(Size{8, 2}, 7, Bitmap::ARGB32));
    EXPECT_EQ(b.GetWidth(), 8);
    // A pitch of 3 bytes for two 32-bit pixels is accepted; every pixel stays writable.
    ASSERT_TRUE(b.Init(Size{2, 3}, 3, Bitmap::ARGB32));
    b.Clear(PackedColor::red);
    EXPECT_EQ(b.Pixel(Point{1, 2}), PackedColor::red);

    Bitmap geometry(Size{16, 16}, Bitmap::RGB24, Bitmap::GeometryOnly());
    EXPECT_FALSE(geometry.IsValid());
    EXPECT_EQ(geometry.GetPitch(), 48u);
    geometry.Clear(PackedColor::red);
    EXPECT_FALSE(geometry.Image(geometry));
}

TEST(Bitmap, BlendsAreExactPerFormat)
{
    // 32 over 32: an opaque, a transparent and a half-covered destination; the last one also
    // checks that the coverage is rounded up (0xC0, not 0xC1).
    EXPECT_EQ(DrawOne(Bitmap::ARGB32, 0xFF204060u, 0x80FF8000u, true), 0xFF8F5F2Fu);
    EXPECT_EQ(DrawOne(Bitmap::ARGB32, 0x00123456u, 0x80FF8000u, true), 0x80FF8000u);
    EXPECT_EQ(DrawOne(Bitmap::ARGB32, 0x80204060u, 0x80FF8000u, true), 0xC08F6030u);
    EXPECT_EQ(DrawOne(Bitmap::XRGB32, 0x01FFFFFFu, 0xFE000000u, true), 0xFF010101u);
    EXPECT_EQ(DrawOne(Bitmap::ARGB32, 0x80204060u, 0x00FF8000u, true), 0x80204060u);
    EXPECT_EQ(DrawOne(Bitmap::ARGB32, 0x80204060u, 0xFFFF8000u, true), 0xFFFF8000u);
    // A 32-bit destination copies without looking at alpha.
    EXPECT_EQ(DrawOne(Bitmap::XRGB32, 0xFF204060u, 0x80FF8000u, false), 0x80FF8000u);

    // 24- and 16-bit destinations blend when copying too.
    EXPECT_EQ(DrawOne(Bitmap::RGB24, 0x204060u, 0x80FF8000u, false), 0x8F5F2Fu);
    EXPECT_EQ(DrawOne(Bitmap::RGB24, 0xFFFFFFu, 0x80000000u, true), 0x7E7E7Eu);
    EXPECT_EQ(DrawOne(Bitmap::RGB24, 0x204060u, 0x00FF8000u, true), 0x204060u);
    EXPECT_EQ(DrawOne(Bitmap::RGB565, 0x220Cu, 0x80FF8000u, false), 0x82E5u);
    EXPECT_EQ(DrawOne(Bitmap::RGB565, 0x220Cu, 0xFFFF8008u, true), 0xFC01u);

    // Span fills: 24 and 565 weigh the destination one less than the row blends do.
    EXPECT_EQ(FillOne(Bitmap::RGB24, 0xFFFFFFu, 0x80000000u, false), 0x7D7D7Du);
    EXPECT_EQ(FillOne(Bitmap::RGB24, 0xFFFFFFu, 0x00000000u, true), 0xFFFFFFu);
    EXPECT_EQ(FillOne(Bitmap::RGB565, 0xFFFFu, 0x80000000u, false), 0x7BEFu);
    EXPECT_EQ(FillOne(Bitmap::ARGB32, 0xFF204060u, 0x80FF8000u, true), 0xFF8F5F2Fu);
    EXPECT_EQ(FillOne(Bitmap::ARGB32, 0xFF204060u, 0x00FF8000u, false), 0x00FF8000u);

    // Pixel writes go through the solid fill.
    Bitmap b(Size{1, 1}, Bitmap::RGB565);
    b.Pixel(Point{}, 0xFFFFFFFFu);
    b.BlendPixel(Point{}, 0x80000000u);
    EXPECT_EQ(b.Pixel(Point{}), 0xFF787C78u);
}

TEST(Bitmap, WholeRowsBlendAsPixelByPixel)
{
    // Every source alpha against random destinations, with transparent and opaque 32-bit
    // destinations in the first and last rows.
    Bitmap source(Size{256, 64}, Bitmap::ARGB32);
    std::uint32_t seed = 1;
    auto next = [&] { return seed = seed * 1664525u + 1013904223u; };
    for (int y = 0; y < 64; ++y)
        for (int x = 0; x < 256; ++x)
        {
            const std::uint32_t pixel = std::uint32_t(x) << 24 | (next() >> 8);
            std::memcpy(source.GetPtr(Point{x, y}), &pixel, 4);
        }
    for (const Bitmap::Format format : {Bitmap::ARGB32, Bitmap::RGB24, Bitmap::RGB565})
    {
        // The caller's block ends with the last row, so a wide loop reading past it trips the sanitizer.
        Bitmap single(Size{256, 64}, format);
        std::vector<unsigned char> block(single.GetNumBytes());
        Bitmap whole(Size{256, 64}, format, block.data());
        for (unsigned int i = 0; i < whole.GetNumBytes(); ++i)
            whole.GetPtr()[i] = static_cast<unsigned char>(next() >> 24);
        for (int x = 0; x < 256 && format == Bitmap::ARGB32; ++x)
        {
            whole.GetPtr(Point{x, 0})[3] = 0;
            whole.GetPtr(Point{x, 63})[3] = 255;
        }
        std::memcpy(single.GetPtr(), whole.GetPtr(), whole.GetNumBytes());
        whole.Image(source);
        for (int y = 0; y < 64; ++y)
            for (int x = 0; x < 256; ++x)
                single.Image(source, Point{x, y}, Rect{x, y, 1, 1});
        EXPECT_EQ(std::memcmp(whole.GetPtr(), single.GetPtr(), whole.GetNumBytes()), 0)
            << "format " << format;
    }

    // A row blended onto itself one pixel along reads each source pixel after the one before
    // was written, as pixel-by-pixel blending does.
    Bitmap shifted(Size{64, 1}, Bitmap::ARGB32), stepped(Size{64, 1}, Bitmap::ARGB32);
    for (unsigned int i = 0; i < shifted.GetNumBytes(); ++i)
        shifted.GetPtr()[i] = stepped.GetPtr()[i] = static_cast<unsigned char>(next() >> 24 | 0x40);
    shifted.Image(shifted, Point{1, 0});
    for (int x = 0; x < 63; ++x)
        stepped.Image(stepped, Point{x + 1, 0}, Rect{x, 0, 1, 1});
    EXPECT_EQ(std::memcmp(shifted.GetPtr(), stepped.GetPtr(), 256), 0);
}

TEST(Bitmap, ConversionsExpandWithoutReplicationAndRoundTrip)
{
    std::vector<std::uint16_t> all(65536);
    for (std::size_t i = 0; i < all.size(); ++i)
        all[i] = std::uint16_t(i);
    Bitmap words(Size{256, 256}, Bitmap::RGB565, reinterpret_cast<unsigned char *>(all.data()));
    EXPECT_EQ(words.Pixel(Point{255, 255}), 0xFFF8FCF8u);
    EXPECT_EQ(words.Pixel(Point{0x21, 0x08}), 0xFF080408u);

    // 565 -> 24 -> 565 and 565 -> 32 -> 565 give every word back.
    Bitmap wide(Size{256, 256}, Bitmap::RGB24), full(Size{256, 256}, Bitmap::XRGB32);
    Bitmap back(Size{256, 256}, Bitmap::RGB565);
    ASSERT_TRUE(wide.CopyImage(words) && full.CopyImage(words));
    EXPECT_EQ(full.Pixel(Point{0x21, 0x08}), 0xFF080408u);
    back.CopyImage(wide);
    EXPECT_EQ(std::memcmp(back.GetPtr(), all.data(), 131072), 0);
    back.Clear();
    back.CopyImage(full);
    EXPECT_EQ(std::memcmp(back.GetPtr(), all.data(), 131072), 0);

    // 24 -> 32 sets alpha to 255.
    Bitmap argb(Size{256, 256}, Bitmap::ARGB32);
    argb.CopyImage(wide);
    EXPECT_EQ(argb.Pixel(Point{0x21, 0x08}), 0xFF080408u);
}

TEST(Bitmap, AreaCopiesClipAgainstEveryEdge)
{
    const int big = INT_MAX, small = INT_MIN;
    const Point ats[] = {{0, 0},  {-3, -2},   {4, 3},         {6, 4}, {-7, 1},
                         {2, -5}, {big, big}, {small, small}, {7, 5}};
    const Rect areas[] = {{0, 0, 7, 5},    {-2, -1, 4, 4}, {3, 2, 10, 10},
                          {1, 1, 0, 3},    {1, 1, 3, -1},  {small, small, big, big},
                          {-5, 0, big, 2}, {4, 2, 2, 2},   {big, big, big, big}};
    const Rect clips[] = {
        {0, 0, 6, 4}, {1, 1, 3, 2}, {-100, -100, 1000, 1000}, {small, small, big, big}, {5, 3, 0, 1}};
    int drawn = 0;
    for (const Point & at : ats)
        for (const Rect & area : areas)
            for (const Rect & clip : clips)
            {
                Block32 src(7, 5, 0xFF000001u, 1), dst(6, 4, 0, 0);
                const bool any = dst.bitmap.CopyImage(src.bitmap, at, area, 0, clip);
                int changed = 0;
                for (std::int64_t y = 0; y < 4; ++y)
                    for (std::int64_t x = 0; x < 6; ++x)
                    {
                        const std::int64_t k = x - at.x, j = y - at.y, sx = area.x + k, sy = area.y + j;
                        const bool hit = x >= clip.x && x < std::int64_t{clip.x} + clip.width &&
                                         y >= clip.y && y < std::int64_t{clip.y} + clip.height && k >= 0 &&
                                         k < area.width && j >= 0 && j < area.height && sx >= 0 && sx < 7 &&
                                         sy >= 0 && sy < 5;
                        ASSERT_EQ(dst.At(x, y), hit ? src.At(sx, sy) : 0u)
                            << at.x << " " << area.x << " " << x;
                        changed += hit;
                    }
                EXPECT_EQ(any, changed > 0);
                drawn += changed > 0;
            }
    EXPECT_GT(drawn, 20);

    // Pixel writes outside the bitmap are dropped even under a clip rectangle that covers them.
    Block32 dst(2, 2, 0, 0);
    dst.bitmap.Pixel(Point{2, 0}, PackedColor::white, Rect{-10, -10, 100, 100});
    dst.bitmap.Pixel(Point{0, -1}, PackedColor::white, Rect{-10, -10, 100, 100});
    EXPECT_EQ(dst.At(0, 0) | dst.At(1, 0) | dst.At(0, 1) | dst.At(1, 1), 0u);
    EXPECT_EQ(dst.bitmap.Pixel(Point{-1, 0}), 0xFFFFFFFFu);
}

TEST(Bitmap, AliasDetachesIntoAnOwnedCopy)
{
    std::vector<unsigned char> memory(3 * 8 + 5, 0x5A);
    Bitmap b(Size{2, 3}, Bitmap::RGB24, memory.data());
    ASSERT_TRUE(b.GetPtr() == memory.data() && !b.OwnsPixels());
    b.DetachAlias();
    ASSERT_TRUE(b.GetPtr() != memory.data() && b.OwnsPixels());
    memory.assign(memory.size(), 0);
    EXPECT_EQ(b.Pixel(Point{1, 2}), 0xFF5A5A5Au);
    const unsigned char * owned = b.GetPtr();
    b.DetachAlias();
    EXPECT_EQ(b.GetPtr(), owned);
}

TEST(Bitmap, CropFlipAndAreaCopyOwnTheirPixels)
{
    Bitmap b(Size{3, 4}, Bitmap::RGB24);
    for (unsigned int i = 0; i < b.GetNumBytes(); ++i)
        b.GetPtr()[i] = static_cast<unsigned char>(i);

    std::unique_ptr<Bitmap> flipped(b.FlipY());
    ASSERT_TRUE(flipped && flipped->OwnsPixels());
    EXPECT_EQ(flipped->Pixel(Point{2, 0}), b.Pixel(Point{2, 3}));
    EXPECT_EQ(flipped->Pixel(Point{0, 3}), b.Pixel(Point{0, 0}));

    // The first cropped row is found as if rows were unpadded (3 x 3 bytes, not a 12-byte pitch).
    std::unique_ptr<Bitmap> crop(b.Crop(Rect{1, 1, 2, 2}));
    ASSERT_TRUE(crop && crop->IsValid());
    EXPECT_EQ(crop->GetPitch(), 8u);
    EXPECT_EQ(crop->GetPtr()[0], 12);
    EXPECT_EQ(crop->GetPtr()[6], 24);
    // An area past an edge gives a bitmap of its size, not filled from this one.
    for (const Rect & outside :
         {Rect{2, 0, 2, 1}, Rect{-1, 0, 1, 1}, Rect{0, INT_MAX, 1, 2}, Rect{1, 1, 1, 0}})
    {
        std::unique_ptr<Bitmap> none(b.Crop(outside));
        ASSERT_TRUE(none);
        EXPECT_EQ(none->GetWidth(), outside.width);
    }

    Bitmap area(b, Rect{1, 2, 2, 2});
    EXPECT_EQ(area.GetPitch(), 12u);
    EXPECT_EQ(area.Pixel(Point{1, 1}), b.Pixel(Point{2, 3}));
    EXPECT_EQ(Bitmap().FlipY(), nullptr);
}

TEST(Bitmap, PaletteFormatsDoNotTakePartInConversions)
{
    Bitmap indexed(Size{4, 2}, Bitmap::Indexed8);
    Kiv::PackedColor * palette = indexed.CreatePalette();
    ASSERT_TRUE(palette && indexed.CreatePalette() == palette);
    EXPECT_EQ(palette[255], 0u);
    indexed.Clear();
    indexed.GetPtr()[0] = 1;
    EXPECT_EQ(indexed.Pixel(Point{0, 0}), 0xFFFFFFFFu);

    std::unique_ptr<Bitmap> flipped(indexed.FlipY());
    ASSERT_TRUE(flipped);
    EXPECT_EQ(flipped->GetPalette(), nullptr);
    EXPECT_EQ(flipped->GetPtr()[4], 1);

    Bitmap target(Size{4, 2}, Bitmap::ARGB32);
    EXPECT_EQ(target.GetBlitter(Bitmap::Indexed8, false), nullptr);
    EXPECT_FALSE(target.CopyImage(indexed));
    EXPECT_FALSE(indexed.Image(target));
}
