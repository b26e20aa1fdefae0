// What the image file readers share: the file kind a name picks, the walk over a memory file's
// bytes, the order of rows, the writer of whole files, and the JPEG decoder that the dispatch of
// Bitmap::Load and Bitmap::GetInfo hands JPEG files to.
#pragma once

#include "File.h"
#include "MemoryFile.h"

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace Kiv
{
class Bitmap;

namespace ImageFile
{
enum Kind
{
    KIND_NONE,
    KIND_TGA,
    KIND_BMP,
    KIND_PCX,
    KIND_JPG
};

// The kind of the extension after the name's last '.', compared case-insensitively with the
// kind's letters ("tga", "bmp", "pcx", "jpg", "jpeg"); KIND_NONE without a known extension.
Kind KindOf(const char * name);

inline uint32_t Get16(const unsigned char * p)
{
    return uint32_t(p[0]) | uint32_t(p[1]) << 8;
}
inline uint32_t Get32(const unsigned char * p)
{
    return Get16(p) | Get16(p + 2) << 16;
}
inline void Put16(unsigned char * p, uint32_t value)
{
    p[0] = static_cast<unsigned char>(value);
    p[1] = static_cast<unsigned char>(value >> 8);
}
inline void Put32(unsigned char * p, uint32_t value)
{
    Put16(p, value);
    Put16(p + 2, value >> 16);
}

// The bytes left after the memory file's cursor.
uint32_t Left(const MemoryFile & file);
// The next `bytes` bytes of the memory file, the cursor moved past them; null, the cursor left
// where it was, when fewer remain.
const unsigned char * Next(MemoryFile & file, uint32_t bytes);

// Reads palette entries byte by byte; past the end of the data each byte repeats the last one read.
class ByteReader
{
public:
    explicit ByteReader(MemoryFile & file) : file(file) {}
    unsigned char Next();

private:
    MemoryFile & file;
    unsigned char last = 0;
};

// A bitmap's rows in the order a file holds them. A negative height marks a top-to-bottom file;
// the mark is cleared here. Otherwise the file's first row is the bottom one.
struct RowOrder
{
    RowOrder(unsigned char * pixels, int32_t & height, uint32_t pitch);

    unsigned char * row;
    ptrdiff_t step;
    uint32_t count;
};

// Copies what remains of the memory file (fewer than `bytes`) to `row`, zeros after it; answers row.
const unsigned char * Pad(MemoryFile & file, unsigned char * row, uint32_t bytes);

// What a row reader does with a row the data no longer holds whole.
enum class ShortRow
{
    ZERO,  // the bitmap row is zeroed
    PAD,   // the bytes that remain are converted, zeros standing for the missing ones
    REPEAT // the last row read is converted again (zeros when there is none)
};

// Fills the bitmap's rows from the memory file: `inBytes` file bytes make one bitmap row of
// `outBytes` bytes through convert(destination, source).
template <typename Convert>
void ReadRows(MemoryFile & file, RowOrder rows, uint32_t inBytes, uint32_t outBytes, ShortRow shortRow,
              Convert convert)
{
    // Room for the widest row of 3 bytes a pixel, or 2 bytes a pixel repeated.
    unsigned char spare[4096 * 3] = {};
    const unsigned char * last = spare;
    for (; rows.count != 0; --rows.count, rows.row += rows.step)
    {
        const unsigned char * source = Next(file, inBytes);
        if (!source)
        {
            if (shortRow == ShortRow::ZERO)
            {
                memset(rows.row, 0, outBytes);
                continue;
            }
            if (shortRow == ShortRow::PAD)
                last = Pad(file, spare, inBytes);
            source = last;
        }
        convert(rows.row, source);
        last = source;
    }
}

// Fills an 8-bit image: with the palette kept, the 256 `colours` become the palette and the
// index rows are copied; otherwise each index is expanded to its colour. Nothing is filled unless
// the bitmap is Indexed8 with a palette, or 32-bit, as the choice asks. `height` is the bitmap's
// own, which may carry the top-to-bottom mark.
void PaletteRows(Bitmap & bitmap, int32_t & height, MemoryFile & file, bool keepPalette,
                 const uint32_t * colours);

// The first `size` bytes of the named file, read whole or not at all.
bool ReadHead(const char * name, unsigned char * head, unsigned long size);

// A file written whole or not at all: a failed write or close removes what was written.
class Writer
{
public:
    explicit Writer(const char * name);
    void Write(const void * data, uint32_t bytes);
    // Whether every byte reached the file.
    bool Finish();

private:
    File file;
    const char * name;
    bool good;
};

// JPEG files (ImageJPG.cpp), the whole file in memory. LoadJpeg leaves the bitmap XRGB32 with
// every pixel opaque and answers true, or answers false with the bitmap empty. GetJpegInfo
// reports the image's size from its headers.
bool LoadJpeg(Bitmap & bitmap, const uint8_t * data, size_t size);
bool GetJpegInfo(const uint8_t * data, size_t size, unsigned long & width, unsigned long & height);
} // namespace ImageFile
} // namespace Kiv
