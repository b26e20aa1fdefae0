// PCX files: version 5, run-length encoded, 8 bits per pixel with the 256-colour palette at the
// end of the file.
#include "Bitmap.h"
#include "ImageFile.h"
#include "MemoryFile.h"

#include <algorithm>
#include <cstring>

namespace Kiv
{
using namespace ImageFile;

namespace
{
enum : uint32_t
{
    HEADER_SIZE = 128,
    PALETTE_SIZE = 768,
    PALETTE_MARK = 12,
    RUN = 192
};

struct Header
{
    explicit Header(const unsigned char * bytes)
        : version(bytes[1]), encoding(bytes[2]), bits(bytes[3]),
          width(int32_t(Get16(bytes + 8)) - int32_t(Get16(bytes + 4)) + 1),
          height(int32_t(Get16(bytes + 10)) - int32_t(Get16(bytes + 6)) + 1)
    {
    }

    uint32_t version, encoding, bits;
    int32_t width, height;
};

// Decodes run-length bytes until `count` pixels are out or the data ends, and answers the
// pixels written. A byte below 192 is one pixel; any other repeats the byte after it, as many
// times as the byte less 192, or as the whole byte with wholeByteRuns. Runs stop at `count`.
template <typename Put>
uint32_t Decode(const unsigned char * in, const unsigned char * end, uint32_t count, bool wholeByteRuns,
                Put put)
{
    uint32_t done = 0;
    while (done < count && in < end)
    {
        uint32_t value = *in++;
        uint32_t run = 1;
        if (value >= RUN)
        {
            if (in == end)
                break;
            run = std::min(wholeByteRuns ? value : value - RUN, count - done);
            value = *in++;
        }
        put(done, value, run);
        done += run;
    }
    return done;
}
} // namespace

bool Bitmap::LoadPCX(MemoryFile & file, bool keepPalette)
{
    const unsigned char * bytes = Next(file, HEADER_SIZE);
    if (!bytes)
        return false;
    const Header header(bytes);
    if (header.version != 5 || header.encoding != 1 || header.bits != 8)
        return false;
    file.SeekEnd(PALETTE_SIZE + 1);
    const unsigned char * map = Next(file, PALETTE_SIZE + 1);
    if (!map || *map++ != PALETTE_MARK)
        return false;
    if (!Init(Size{header.width, header.height}, 0, keepPalette ? Indexed8 : XRGB32) ||
        (keepPalette && !CreatePalette()))
        return false;
    file.SeekSet(HEADER_SIZE);
    const unsigned char * in = file.CurrentPosition();
    const unsigned char * end = in + Left(file);
    const uint32_t count = uint32_t(width) * uint32_t(height);
    uint32_t done = 0;
    if (keepPalette)
    {
        for (uint32_t i = 0; i < PaletteSize; ++i, map += 3)
            palette[i] = PackedColor(map[0], map[1], map[2], 0);
        // Indices follow one another from the start of the block, whatever the pitch or the
        // file's bytes per line.
        done = Decode(in, end, count, false,
                      [this](uint32_t at, uint32_t value, uint32_t run)
                      { memset(pixels + at, int(value), run); });
    }
    else
    {
        // Expanding, a run is as long as its whole first byte, and the palette's red byte lands
        // in the blue channel.
        uint32_t colours[PaletteSize];
        for (uint32_t i = 0; i < PaletteSize; ++i, map += 3)
            colours[i] = PackedColor(map[2], map[1], map[0]);
        done = 4 * Decode(in, end, count, true,
                          [this, &colours](uint32_t at, uint32_t value, uint32_t run)
                          {
                              for (unsigned char * out = pixels + 4 * at; run != 0; --run, out += 4)
                                  Put32(out, colours[value]);
                          });
    }
    memset(pixels + done, 0, numBytes - done);
    file.Close();
    return true;
}

bool Bitmap::GetInfoPCX(const char * name, Format & format, unsigned long & width, unsigned long & height)
{
    unsigned char bytes[12];
    if (!ReadHead(name, bytes, sizeof(bytes)))
        return false;
    const Header header(bytes);
    if (header.version != 5 || header.width < 1 || header.height < 1)
        return false;
    format = XRGB32;
    width = static_cast<unsigned long>(header.width);
    height = static_cast<unsigned long>(header.height);
    return true;
}
} // namespace Kiv
