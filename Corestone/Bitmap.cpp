// Kiv::Bitmap: geometry, ownership of the pixel block, and the area copies built on the row
// operations of BitmapRows.
#include "Bitmap.h"

#include "BitmapRows.h"

#include <algorithm>
#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
// One axis of an area copy: where the first pixel lands, where it comes from, how many follow.
struct Run
{
    std::int64_t dst = 0;
    std::int64_t src = 0;
    std::int64_t count = 0;
};

// The offsets k of the area (area position a, length n) drawn at `at` that land inside the clip
// span and the destination and come from inside the source. 64-bit, so no rectangle overflows.
Run ClipRun(std::int64_t at, std::int64_t a, std::int64_t n, std::int64_t clip, std::int64_t clipLength,
            std::int64_t dstLength, std::int64_t srcLength)
{
    const std::int64_t lo = std::max({std::int64_t{0}, clip - at, -at, -a});
    const std::int64_t hi = std::min({n, clip + clipLength - at, dstLength - at, srcLength - a});
    Run run;
    if (hi > lo)
        run = Run{at + lo, a + lo, hi - lo};
    return run;
}

// A bitmap on the heap without the throwing operator new: image routines never throw.
Bitmap * NewBitmap()
{
    void * memory = Alloc::New(sizeof(Bitmap));
    return memory ? ::new (memory) Bitmap() : nullptr;
}

// Whether a non-empty rectangle lies wholly inside (0, 0, width, height).
bool Within(const Rect & r, std::int32_t width, std::int32_t height)
{
    return r.x >= 0 && r.y >= 0 && r.width >= 0 && r.height > 0 && std::int64_t{r.x} + r.width <= width &&
           std::int64_t{r.y} + r.height <= height;
}

bool Inside(const Point & p, const Rect & r)
{
    return p.x >= r.x && p.y >= r.y && std::int64_t{p.x} < std::int64_t{r.x} + r.width &&
           std::int64_t{p.y} < std::int64_t{r.y} + r.height;
}
} // namespace

Bitmap::Bitmap()
    : width(0), height(0), palette(nullptr), pixels(nullptr), pitch(0), bytesPerPixel(0), format(Raw),
      ownsPixels(false), ops(BitmapRows::Of(Raw)), numBytes(0)
{
}

Bitmap::Bitmap(const Size & size, Format format, unsigned char * pixels) : Bitmap()
{
    Init(size, 0, format, pixels, 0);
    if (pixels == GeometryOnly())
        this->pixels = nullptr;
}

Bitmap::Bitmap(const Bitmap & source, const Rect & area) : Bitmap()
{
    Init(Size{area.width, area.height}, static_cast<int>(source.pitch), source.format);
    if (!pixels || !source.pixels || !Within(area, source.width, source.height) ||
        bytesPerPixel != source.bytesPerPixel)
        return;
    const std::size_t rowBytes = std::size_t(width) * bytesPerPixel;
    const unsigned char * src = source.GetPtr(Point{area.x, area.y});
    for (unsigned char * dst = pixels; dst < pixels + std::size_t(height) * pitch;
         dst += pitch, src += source.pitch)
        std::memcpy(dst, src, rowBytes);
}

Bitmap::~Bitmap()
{
    Done();
}

bool Bitmap::Init(const Size & size, int pitchBytes, Format newFormat, unsigned char * memory, int byteCount)
{
    Done();
    const std::int64_t w = size.width, h = size.height;
    // A negative pitch would be stored unsigned as a huge one: refused with the other bad sizes.
    if (w < 0 || h < 0 || w > MaxSide || h > MaxSide || pitchBytes < 0 || h * pitchBytes > MaxBytes ||
        static_cast<unsigned int>(byteCount) > MaxBytes)
        return false;
    width = size.width;
    height = size.height;
    pixels = memory;
    pitch = static_cast<std::uint32_t>(pitchBytes);
    format = newFormat;
    numBytes = static_cast<std::uint32_t>(byteCount);
    if (BitmapRows::Known(newFormat))
    {
        bytesPerPixel = BitmapRows::BytesPerPixel(newFormat);
        ops = BitmapRows::Of(newFormat);
    }
    if (pitch == 0)
        pitch = CalcPitch(static_cast<unsigned int>(width));
    const std::uint32_t block = static_cast<std::uint32_t>(height) * pitch;
    if (numBytes != 0 || format == Raw)
    {
        if (block > numBytes)
        {
            Done();
            return false;
        }
    }
    else
        numBytes = block;
    // The pitch in bytes is compared with the width in pixels, as callers have always relied on.
    if (format != Raw && (width < 1 || height < 1 || pitch < static_cast<std::uint32_t>(width)))
    {
        pixels = nullptr;
        return false;
    }
    if (pixels)
        return true;
    pixels = static_cast<unsigned char *>(Alloc::New(Extent()));
    ownsPixels = pixels != nullptr;
    if (!pixels)
        Done();
    return IsValid();
}

void Bitmap::Done()
{
    if (ownsPixels && pixels)
        Alloc::Delete(pixels);
    if (palette)
        Alloc::Delete(palette);
    width = height = 0;
    palette = nullptr;
    pixels = nullptr;
    pitch = 0;
    format = Raw;
    ownsPixels = false;
    ops = BitmapRows::Of(Raw);
    numBytes = 0;
}

unsigned int Bitmap::Extent() const
{
    const std::uint32_t reach = height > 0 ? static_cast<std::uint32_t>(height - 1) * pitch +
                                                 static_cast<std::uint32_t>(width) * bytesPerPixel
                                           : 0;
    return std::max(numBytes, reach);
}

void Bitmap::DetachAlias() const
{
    // The image stays the same; only the memory that holds it changes hands.
    const_cast<Bitmap *>(this)->Detach();
}

void Bitmap::Detach()
{
    if (ownsPixels || width == 0 || pitch == 0 || !pixels)
        return;
    auto * copy = static_cast<unsigned char *>(Alloc::New(Extent()));
    if (!copy)
    {
        Done();
        return;
    }
    std::memcpy(copy, pixels, numBytes);
    pixels = copy;
    ownsPixels = true;
}

PackedColor * Bitmap::CreatePalette()
{
    if (!palette)
    {
        void * memory = Alloc::New(PaletteSize * sizeof(PackedColor));
        if (!memory)
            return nullptr;
        palette = static_cast<PackedColor *>(memory);
        for (unsigned int i = 0; i < PaletteSize; ++i)
            ::new (palette + i) PackedColor();
    }
    return palette;
}

PackedColor Bitmap::Pixel(const Point & p) const
{
    unsigned char bytes[4] = {0xFF, 0xFF, 0xFF, 0xFF};
    if (pixels && Inside(p, *this))
        ops.rowTo32(bytes, GetPtr(p), 1);
    return PackedColor(bytes[2], bytes[1], bytes[0], bytes[3]);
}

void Bitmap::Pixel(const Point & p, PackedColor colour, const Rect & clip)
{
    // The bitmap's own bounds are tested too: a clip rectangle larger than the bitmap must not
    // reach past its pixels.
    if (pixels && Inside(p, clip) && Inside(p, *this))
        ops.fillSpan(GetPtr(p), colour, 1, 0);
}

void Bitmap::Clear()
{
    if (format == Raw || !pixels)
        return;
    const std::size_t rowBytes = std::size_t(width) * bytesPerPixel;
    if (pitch == rowBytes)
    {
        std::memset(pixels, 0, std::size_t(height) * pitch);
        return;
    }
    for (std::int32_t y = 0; y < height; ++y)
        std::memset(pixels + std::size_t(y) * pitch, 0, rowBytes);
}

void Bitmap::Clear(unsigned long colour)
{
    if (format == Raw || !pixels)
        return;
    for (std::int32_t y = 0; y < height; ++y)
        ops.fillSpan(pixels + std::size_t(y) * pitch, static_cast<std::uint32_t>(colour),
                     static_cast<unsigned int>(width), 0);
}

Bitmap::RowConversion Bitmap::GetBlitter(Format source, bool blend) const
{
    switch (source)
    {
    case RGB24:
        return ops.from24;
    case ARGB32:
    case XRGB32:
        return blend ? ops.from32Blend : ops.from32;
    case RGB565:
        return ops.from16;
    default:
        return nullptr;
    }
}

bool Bitmap::Draw(const Bitmap & source, const Point & at, const Rect & area, const Rect & clip, bool blend)
{
    const RowConversion convert = GetBlitter(source.format, blend);
    if (!BitmapRows::Converts(format) || !pixels || !source.pixels || !convert)
        return false;
    const Run x = ClipRun(at.x, area.x, area.width, clip.x, clip.width, width, source.width);
    const Run y = ClipRun(at.y, area.y, area.height, clip.y, clip.height, height, source.height);
    if (x.count == 0 || y.count == 0)
        return false;
    const unsigned char * src = source.GetPtr(Point{std::int32_t(x.src), std::int32_t(y.src)});
    unsigned char * dst = GetPtr(Point{std::int32_t(x.dst), std::int32_t(y.dst)});
    for (std::int64_t row = 0; row < y.count; ++row, src += source.pitch, dst += pitch)
        convert(dst, src, static_cast<unsigned int>(x.count));
    return true;
}

bool Bitmap::CopyImage(const Bitmap & source, const Point & at, const Rect & area, int, const Rect & clip)
{
    return Draw(source, at, area, clip, false);
}

bool Bitmap::Image(const Bitmap & source, const Point & at, const Rect & area, int, const Rect & clip)
{
    return Draw(source, at, area, clip, true);
}

Bitmap * Bitmap::Crop(const Rect & rect) const
{
    Bitmap * crop = NewBitmap();
    if (!crop)
        return nullptr;
    crop->Init(Size{rect.width, rect.height}, 0, format);
    if (!Within(rect, width, height) || !crop->pixels || !pixels || crop->bytesPerPixel != bytesPerPixel)
        return crop;
    // The first row is found as if rows had no padding, while the rows that follow step by the
    // pitch: a pitch narrower than the rows could make that reach past the block.
    const std::size_t rowBytes = std::size_t(rect.width) * bytesPerPixel;
    const std::size_t first = (std::size_t(width) * rect.y + rect.x) * bytesPerPixel;
    if (first + std::size_t(rect.height - 1) * pitch + rowBytes > Extent())
        return crop;
    const unsigned char * src = pixels + first;
    unsigned char * dst = crop->pixels;
    for (std::int32_t row = 0; row < rect.height; ++row, src += pitch, dst += rowBytes)
        std::memcpy(dst, src, rowBytes);
    return crop;
}

Bitmap * Bitmap::FlipY() const
{
    if (width == 0 || height == 0 || pitch == 0 || !pixels)
        return nullptr;
    Bitmap * flipped = NewBitmap();
    if (!flipped)
        return nullptr;
    if (!flipped->Init(GetSize(), static_cast<int>(pitch), format, nullptr, static_cast<int>(numBytes)) ||
        flipped->bytesPerPixel != bytesPerPixel)
    {
        delete flipped;
        return nullptr;
    }
    const std::size_t rowBytes = std::size_t(width) * bytesPerPixel;
    for (std::int32_t row = 0; row < height; ++row)
        std::memcpy(flipped->GetPtr(Point{0, row}), GetPtr(Point{0, height - 1 - row}), rowBytes);
    return flipped;
}
} // namespace Kiv
