// Kiv::Bitmap, the in-memory raster image: a rectangle of pixels in one of a few formats, an
// optional 256-entry palette, and eight row operations picked once per Init from the format. The
// pixels belong to the bitmap (from Kiv::Alloc) or are borrowed from the caller (an alias).
// Row 0 is the top row. Nothing here throws: failures leave an empty bitmap (IsValid is false),
// answer false, or return null.
#pragma once

#include "Alloc.h"
#include "KivApi.h"
#include "PackedColor.h"
#include "Rect.h"

#include <cstdint>

namespace Kiv
{
class File;
class MemoryFile;
class PString;

class KIV_API Bitmap : public AllocBase
{
public:
    enum Format
    {
        Indexed8 = 0, // one byte, an index into the palette
        RGB24 = 1,    // bytes B, G, R
        ARGB32 = 2,   // bytes B, G, R, A with a meaningful alpha
        XRGB32 = 3,   // bytes B, G, R, A; converters write A = 255
        RGB565 = 4,   // little-endian word: red 15-11, green 10-5, blue 4-0
        Raw = 5       // no pixel layout: an empty bitmap or an opaque block of bytes
    };

    // (destination row, source row, pixel count)
    using RowConversion = void (*)(unsigned char * dst, const unsigned char * src, unsigned int count);
    // (destination, colour, pixel count, byte step between pixels; 0 for the format's pixel size)
    using SpanFill = void (*)(unsigned char * dst, PackedColor colour, unsigned int count,
                              unsigned int stride);

    // The eight operations of one format.
    struct RowOps
    {
        RowConversion rowTo32;     // this format to 32-bit pixels
        SpanFill fillSpan;         // solid span (32-bit: a plain store; others test alpha)
        SpanFill blendSpan;        // blended span
        RowConversion copyRow;     // same format
        RowConversion from16;      // from RGB565
        RowConversion from24;      // from RGB24
        RowConversion from32;      // from 32-bit, copying (RGB24 and RGB565 blend here too)
        RowConversion from32Blend; // from 32-bit, blending by the source alpha
    };

    enum : unsigned int
    {
        MaxSide = 4096,        // widest and tallest bitmap
        MaxBytes = 0x1000000u, // largest pixel block
        PaletteSize = 256      // palette entries
    };

    // Passed as the pixels of the (Size, Format, pixels) constructor (the all-ones pointer): the
    // geometry is set up and nothing is allocated; the pixels stay null.
    static unsigned char * GeometryOnly() { return reinterpret_cast<unsigned char *>(~std::uintptr_t{0}); }

    Bitmap();
    Bitmap(const Size & size, Format format, unsigned char * pixels = nullptr);
    // An owned copy of an area of a source bitmap, with the source's pitch.
    Bitmap(const Bitmap & source, const Rect & area);
    ~Bitmap();
    Bitmap(const Bitmap &) = delete;
    Bitmap & operator=(const Bitmap &) = delete;

    // pitch 0 picks CalcPitch(width); pixels null allocates, anything else aliases the caller's
    // memory; numBytes 0 takes height x pitch. Answers IsValid().
    bool Init(const Size & size, int pitch, Format format, unsigned char * pixels = nullptr,
              int numBytes = 0);
    // Frees owned pixels and the palette and returns to the empty Raw state.
    void Done();
    // Turns an alias into an owned copy of its pixels; the image itself does not change.
    void DetachAlias() const;

    Format GetFormat() const { return format; }
    unsigned int GetBytesPerPixel() const { return bytesPerPixel; }
    unsigned int GetNumBytes() const { return numBytes; }
    unsigned int GetPitch() const { return pitch; }
    std::int32_t GetWidth() const { return width; }
    std::int32_t GetHeight() const { return height; }
    Size GetSize() const { return Size{width, height}; }
    unsigned char * GetPtr() const { return pixels; }
    // No bounds check.
    unsigned char * GetPtr(const Point & p) const
    {
        return pixels + static_cast<std::intptr_t>(p.y) * pitch +
               static_cast<std::intptr_t>(p.x) * bytesPerPixel;
    }
    PackedColor * GetPalette() const { return palette; }
    // The palette, made (all zero) when missing; null when memory is out.
    PackedColor * CreatePalette();
    bool IsValid() const { return pixels != nullptr; }
    bool OwnsPixels() const { return ownsPixels; }
    operator Rect() const { return Rect{0, 0, width, height}; }
    const RowOps & GetRowOps() const { return ops; }
    // Rows padded to a 4-byte boundary.
    unsigned int CalcPitch(unsigned int pixelsPerRow) const
    {
        return (bytesPerPixel * pixelsPerRow + 3) & ~3u;
    }

    // 0xFFFFFFFF outside the bitmap, and for Indexed8 and Raw, whose palette is not consulted.
    PackedColor Pixel(const Point & p) const;
    // A solid write through the format's FillSpan, inside the clip rectangle (and the bitmap).
    void Pixel(const Point & p, PackedColor colour, const Rect & clip);
    void Pixel(const Point & p, PackedColor colour) { Pixel(p, colour, *this); }
    void BlendPixel(const Point & p, PackedColor colour, const Rect & clip) { Pixel(p, colour, clip); }
    void BlendPixel(const Point & p, PackedColor colour) { Pixel(p, colour, *this); }

    // Zero every pixel; row padding is left as it is.
    void Clear();
    void Clear(unsigned long colour);

    // The conversion that brings rows of a source format into this format; null for Indexed8 and
    // Raw sources.
    RowConversion GetBlitter(Format source, bool blend) const;

    // Copies the source area (clipped to the source) to `at`, clipped to the clip rectangle and
    // this bitmap. Image blends by the source alpha where CopyImage copies. The integer is kept for
    // the engine's callers and not consulted. Both answer whether any pixel was drawn.
    bool CopyImage(const Bitmap & source, const Point & at, const Rect & area, int reserved,
                   const Rect & clip);
    bool CopyImage(const Bitmap & source, const Point & at, const Rect & area, int reserved = 0)
    {
        return CopyImage(source, at, area, reserved, *this);
    }
    bool CopyImage(const Bitmap & source, const Point & at = Point{}, int reserved = 0)
    {
        return CopyImage(source, at, source, reserved, *this);
    }
    bool Image(const Bitmap & source, const Point & at, const Rect & area, int reserved, const Rect & clip);
    bool Image(const Bitmap & source, const Point & at, const Rect & area, int reserved = 0)
    {
        return Image(source, at, area, reserved, *this);
    }
    bool Image(const Bitmap & source, const Point & at = Point{}, int reserved = 0)
    {
        return Image(source, at, source, reserved, *this);
    }

    // New bitmaps on the heap that the caller deletes; the palette is not copied. Crop answers a
    // bitmap of the rectangle's size whose pixels are left unfilled when the rectangle does not
    // lie inside this bitmap; null only when memory is out. FlipY answers null for an empty bitmap.
    Bitmap * Crop(const Rect & rect) const;
    Bitmap * FlipY() const;

    // Channels of a 16-bit pixel, unshifted: 5-6-5 and 1-5-5-5 layouts.
    static constexpr unsigned int R16(unsigned int p) { return (p >> 11) & 31; }
    static constexpr unsigned int G16(unsigned int p) { return (p >> 5) & 63; }
    static constexpr unsigned int B16(unsigned int p) { return p & 31; }
    static constexpr unsigned int R15(unsigned int p) { return (p >> 10) & 31; }
    static constexpr unsigned int G15(unsigned int p) { return (p >> 5) & 31; }
    static constexpr unsigned int B15(unsigned int p) { return p & 31; }

    // Image files, chosen by the name's extension: TGA, BMP, PCX and JPEG are read; TGA and BMP
    // are written.
    // The directory, when given, is the substitution the name is opened through.
    bool Load(const PString & name, const PString & directory, bool keepPalette = false);
    // The same from a file open for reading, or from a memory file, whose name picks the kind. A
    // memory file is read from its start and closed once loaded.
    bool Load(File & file, bool keepPalette = false);
    bool Load(MemoryFile & file, bool keepPalette = false);
    bool Save(const char * name) const;
    static bool GetInfo(const char * name, Format & format, unsigned long & width, unsigned long & height);

protected:
    bool LoadTGA(MemoryFile & file, bool keepPalette);
    bool LoadBMP(MemoryFile & file, bool keepPalette);
    bool LoadPCX(MemoryFile & file, bool keepPalette);
    bool LoadJPG(MemoryFile & file);
    bool SaveTGA(const char * name) const;
    bool SaveBMP(const char * name, bool unused) const;
    static bool GetInfoTGA(const char * name, Format & format, unsigned long & width, unsigned long & height);
    static bool GetInfoBMP(const char * name, Format & format, unsigned long & width, unsigned long & height);
    static bool GetInfoPCX(const char * name, Format & format, unsigned long & width, unsigned long & height);
    static bool GetInfoJPG(const char * name, Format & format, unsigned long & width, unsigned long & height);
    void Load32(MemoryFile & file);
    void Load24(MemoryFile & file);
    void Load16(MemoryFile & file);
    void Load15(MemoryFile & file);
    void TGA16(MemoryFile & file);
    void TGA8(MemoryFile & file, bool keepPalette);
    void BMP8(MemoryFile & file, bool keepPalette, unsigned int colorsUsed);

    // Bytes the operations may touch from the first pixel: the pixel block, or more when a pitch
    // narrower than a row of pixels makes the last row reach past it.
    unsigned int Extent() const;

    std::int32_t width;
    std::int32_t height;
    PackedColor * palette;
    unsigned char * pixels;
    std::uint32_t pitch;
    std::uint32_t bytesPerPixel;
    Format format;
    bool ownsPixels;
    RowOps ops;
    std::uint32_t numBytes;

private:
    void Detach();
    bool Draw(const Bitmap & source, const Point & at, const Rect & area, const Rect & clip, bool blend);
};
} // namespace Kiv
