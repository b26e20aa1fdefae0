// BMP files: uncompressed 8, 24 and 32-bit images with the 40-byte information header and rows
// without padding; every file is read bottom-up. 24 and 32-bit images are written.
#include "Bitmap.h"
#include "ImageFile.h"
#include "MemoryFile.h"

namespace Kiv
{
using namespace ImageFile;

namespace
{
enum : uint32_t
{
    FILE_HEADER_SIZE = 14,
    INFO_HEADER_SIZE = 40,
    HEADERS_SIZE = FILE_HEADER_SIZE + INFO_HEADER_SIZE,
    MAGIC = 0x4D42 // "BM"
};

// The fields of the two headers that the reader looks at.
struct Header
{
    explicit Header(const unsigned char * bytes)
        : magic(Get16(bytes)), infoSize(Get32(bytes + 14)), width(static_cast<int32_t>(Get32(bytes + 18))),
          height(static_cast<int32_t>(Get32(bytes + 22)))
    {
    }

    bool IsKnown() const { return magic == MAGIC && infoSize == INFO_HEADER_SIZE; }
    // The rows are read bottom-up whatever the sign says.
    int32_t Rows() const { return height == INT32_MIN ? INT32_MAX : height < 0 ? -height : height; }

    uint32_t magic, infoSize;
    int32_t width, height;
};
} // namespace

bool Bitmap::LoadBMP(MemoryFile & file, bool keepPalette)
{
    const unsigned char * bytes = Next(file, HEADERS_SIZE);
    if (!bytes)
        return false;
    const Header header(bytes);
    const unsigned char * info = bytes + FILE_HEADER_SIZE;
    // A width that is a multiple of 4 leaves 8, 24 and 32-bit rows without padding. The pixels
    // (or the palette) follow the headers: the data offset is not read.
    if (!header.IsKnown() || Get16(info + 12) != 1 || Get32(info + 16) != 0 || header.width % 4 != 0)
        return false;
    const Size size{header.width, header.Rows()};
    switch (Get16(info + 14))
    {
    case 8:
        if (!Init(size, 0, keepPalette ? Indexed8 : XRGB32) || (keepPalette && !CreatePalette()))
            return false;
        BMP8(file, keepPalette, Get32(info + 32));
        break;
    case 24:
        if (!Init(size, 0, XRGB32))
            return false;
        Load24(file);
        break;
    case 32:
        if (!Init(size, 0, ARGB32))
            return false;
        Load32(file);
        break;
    default:
        return false;
    }
    file.Close();
    return true;
}

void Bitmap::BMP8(MemoryFile & file, bool keepPalette, unsigned int colorsUsed)
{
    const uint32_t count = colorsUsed >= 1 && colorsUsed <= PaletteSize ? colorsUsed : PaletteSize;
    // Entries B, G, R, reserved; the reserved byte is the kept palette's alpha. Unused entries are 0.
    uint32_t colours[PaletteSize] = {};
    ByteReader bytes(file);
    for (uint32_t i = 0; i < count; ++i)
    {
        uint32_t entry = 0;
        for (uint32_t shift = 0; shift < 32; shift += 8)
            entry |= uint32_t(bytes.Next()) << shift;
        colours[i] = keepPalette ? entry : 0xFF000000u | entry;
    }
    PaletteRows(*this, height, file, keepPalette, colours);
}

bool Bitmap::SaveBMP(const char * name, bool) const
{
    if (!pixels || width == 0 || height == 0 || (format != RGB24 && format != ARGB32 && format != XRGB32))
        return false;
    const uint32_t bytes = format == ARGB32 ? 4 : 3;
    const uint32_t rowBytes = uint32_t(width) * bytes;
    const uint32_t imageSize = uint32_t(height) * rowBytes;
    unsigned char header[HEADERS_SIZE] = {};
    Put16(header, MAGIC);
    Put32(header + 2, imageSize + HEADERS_SIZE);
    Put32(header + 10, HEADERS_SIZE);
    unsigned char * info = header + FILE_HEADER_SIZE;
    Put32(info, INFO_HEADER_SIZE);
    Put32(info + 4, uint32_t(width));
    Put32(info + 8, uint32_t(height));
    Put16(info + 12, 1);
    Put16(info + 14, bytes * 8);
    Put32(info + 20, imageSize);
    Writer out(name);
    out.Write(header, sizeof(header));
    // Rows from the bottom up, without padding; XRGB32 pixels lose their fourth byte.
    unsigned char packed[MaxSide * 3];
    for (int32_t y = height - 1; y >= 0; --y)
    {
        const unsigned char * row = GetPtr(Point{0, y});
        if (format == XRGB32)
        {
            for (int32_t x = 0; x < width; ++x)
                memcpy(packed + 3 * x, row + 4 * x, 3);
            row = packed;
        }
        out.Write(row, rowBytes);
    }
    return out.Finish();
}

bool Bitmap::GetInfoBMP(const char * name, Format & format, unsigned long & width, unsigned long & height)
{
    unsigned char bytes[FILE_HEADER_SIZE + 12];
    if (!ReadHead(name, bytes, sizeof(bytes)))
        return false;
    const Header header(bytes);
    if (!header.IsKnown() || header.width < 0)
        return false;
    format = XRGB32;
    width = static_cast<unsigned long>(header.width);
    height = static_cast<unsigned long>(header.Rows());
    return true;
}
} // namespace Kiv
