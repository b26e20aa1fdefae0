// TGA files: uncompressed colour-mapped images (8 bits with a 24-bit colour map) and true-colour
// images (16, 24 and 32 bits), stored either way up; 32-bit images are written top to bottom.
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
    HEADER_SIZE = 18,
    COLOUR_MAPPED = 1,
    TRUE_COLOUR = 2,
    RIGHT_TO_LEFT = 0x10,
    TOP_TO_BOTTOM = 0x20
};

struct Header
{
    explicit Header(const unsigned char * bytes)
        : idLength(bytes[0]), mapType(bytes[1]), imageType(bytes[2]), mapEntryBits(bytes[7]),
          width(static_cast<int32_t>(Get16(bytes + 12))), height(static_cast<int32_t>(Get16(bytes + 14))),
          bits(bytes[16]), descriptor(bytes[17])
    {
    }

    bool IsColourMapped() const
    {
        return imageType == COLOUR_MAPPED && mapType == 1 && mapEntryBits == 24 && bits == 8;
    }
    bool IsTrueColour() const
    {
        return imageType == TRUE_COLOUR && mapType == 0 && (bits == 16 || bits == 24 || bits == 32);
    }

    uint32_t idLength, mapType, imageType, mapEntryBits;
    int32_t width, height;
    uint32_t bits, descriptor;
};
} // namespace

bool Bitmap::LoadTGA(MemoryFile & file, bool keepPalette)
{
    const unsigned char * bytes = Next(file, HEADER_SIZE);
    if (!bytes)
        return false;
    const Header header(bytes);
    file.SeekCur(static_cast<int>(header.idLength));
    if ((header.descriptor & RIGHT_TO_LEFT) != 0 || !(header.IsColourMapped() || header.IsTrueColour()))
        return false;
    const Size size{header.width, header.height};
    if (header.IsColourMapped())
    {
        if (!Init(size, 0, keepPalette ? Indexed8 : XRGB32) || (keepPalette && !CreatePalette()))
            return false;
    }
    else if (!Init(size, 0, header.bits == 32 ? ARGB32 : XRGB32))
        return false;
    if ((header.descriptor & TOP_TO_BOTTOM) != 0)
        height = -height;
    if (header.IsColourMapped())
        TGA8(file, keepPalette);
    else if (header.bits == 16)
        TGA16(file);
    else if (header.bits == 24)
        Load24(file);
    else
        Load32(file);
    file.Close();
    return true;
}

void Bitmap::TGA8(MemoryFile & file, bool keepPalette)
{
    // The map always holds 256 entries, whatever the header says, each taken as R, G, B.
    uint32_t colours[PaletteSize];
    ByteReader bytes(file);
    const uint32_t alpha = keepPalette ? 0 : 0xFF000000u;
    for (uint32_t & colour : colours)
    {
        const uint32_t red = bytes.Next();
        const uint32_t green = bytes.Next();
        colour = alpha | red << 16 | green << 8 | bytes.Next();
    }
    PaletteRows(*this, height, file, keepPalette, colours);
}

bool Bitmap::SaveTGA(const char * name) const
{
    if (format != ARGB32 || !pixels)
        return false;
    unsigned char header[HEADER_SIZE] = {};
    header[2] = TRUE_COLOUR;
    Put16(header + 12, static_cast<uint32_t>(width));
    Put16(header + 14, static_cast<uint32_t>(height));
    header[16] = 32;
    header[17] = TOP_TO_BOTTOM;
    Writer out(name);
    out.Write(header, sizeof(header));
    for (int32_t y = 0; y < height; ++y)
        out.Write(GetPtr(Point{0, y}), static_cast<uint32_t>(width) * 4);
    return out.Finish();
}

bool Bitmap::GetInfoTGA(const char * name, Format & format, unsigned long & width, unsigned long & height)
{
    unsigned char bytes[HEADER_SIZE];
    if (!ReadHead(name, bytes, sizeof(bytes)))
        return false;
    const Header header(bytes);
    if (header.imageType == COLOUR_MAPPED)
        format = Indexed8;
    else if (header.imageType == TRUE_COLOUR)
        format = header.bits == 32 ? ARGB32 : XRGB32;
    else
        format = Raw;
    width = static_cast<unsigned long>(header.width);
    height = static_cast<unsigned long>(header.height);
    return true;
}
} // namespace Kiv
