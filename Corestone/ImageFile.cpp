// Image files: Bitmap::Load, Save and GetInfo pick a format by the name's extension and hand the
// file, whole in a memory file, to the format's reader (ImageTGA, ImageBMP, ImagePCX, ImageJPG).
// The row readers shared by the formats live here too.
#include "ImageFile.h"
#include "Alloc.h"
#include "Bitmap.h"
#include "CRuntime.h"
#include "File.h"
#include "MemoryFile.h"
#include "PString.h"

#include <cstring>

namespace Kiv
{
namespace ImageFile
{
Kind KindOf(const char * name)
{
    static const struct
    {
        const char * letters;
        Kind kind;
    } kinds[] = {
        {"tga", KIND_TGA}, {"bmp", KIND_BMP}, {"pcx", KIND_PCX}, {"jpeg", KIND_JPG}, {"jpg", KIND_JPG}};
    const char * ext = File::Path::GetExt(name);
    if (ext)
        for (const auto & known : kinds)
            if (CRuntime::Strnicmp(ext, known.letters, strlen(known.letters)) == 0)
                return known.kind;
    return KIND_NONE;
}

uint32_t Left(const MemoryFile & file)
{
    return file.Tell() < file.Size() ? file.Size() - file.Tell() : 0;
}

const unsigned char * Next(MemoryFile & file, uint32_t bytes)
{
    if (bytes > Left(file))
        return nullptr;
    const unsigned char * at = file.CurrentPosition();
    file.SeekCur(static_cast<int>(bytes));
    return at;
}

unsigned char ByteReader::Next()
{
    if (const unsigned char * at = ImageFile::Next(file, 1))
        last = *at;
    return last;
}

const unsigned char * Pad(MemoryFile & file, unsigned char * row, uint32_t bytes)
{
    const uint32_t got = Left(file);
    if (got != 0)
        memcpy(row, Next(file, got), got);
    memset(row + got, 0, bytes - got);
    return row;
}

RowOrder::RowOrder(unsigned char * pixels, int32_t & height, uint32_t pitch)
{
    const bool topDown = height < 0;
    if (topDown)
        height = -height;
    count = static_cast<uint32_t>(height);
    step = topDown ? static_cast<ptrdiff_t>(pitch) : -static_cast<ptrdiff_t>(pitch);
    row = topDown || count == 0 ? pixels : pixels + size_t(count - 1) * pitch;
}

bool ReadHead(const char * name, unsigned char * head, unsigned long size)
{
    File file;
    return file.Open(name, File::MODE_READ).Succeeded() && file.Read(head, 1, size) == 1;
}

Writer::Writer(const char * name) : name(name)
{
    good = file.Open(name, File::MODE_WRITE | File::MODE_CREATE).Succeeded();
}

void Writer::Write(const void * data, uint32_t bytes)
{
    good = good && file.Write(data, 1, bytes) == 1;
}

bool Writer::Finish()
{
    if (!file.IsOpen())
        return false;
    good = file.Close() == File::RES_OK && good;
    if (!good)
        File::Remove(name);
    return good;
}
} // namespace ImageFile

using namespace ImageFile;

namespace
{
// B, G, R bytes to opaque 32-bit pixels, four from three words at a time (every target is
// little-endian: a word's low byte comes first).
void Expand24(unsigned char * dst, const unsigned char * src, unsigned int count)
{
    const uint32_t opaque = 0xFF000000u;
    unsigned int i = 0;
    for (; i + 4 <= count; i += 4, src += 12, dst += 16)
    {
        uint32_t in[3];
        memcpy(in, src, sizeof(in));
        const uint32_t out[4] = {opaque | in[0], opaque | in[0] >> 24 | in[1] << 8,
                                 opaque | in[1] >> 16 | in[2] << 16, opaque | in[2] >> 8};
        memcpy(dst, out, sizeof(out));
    }
    for (; i < count; ++i, src += 3, dst += 4)
        Put32(dst, opaque | uint32_t(src[2]) << 16 | Get16(src));
}

// 1-5-5-5 words to 32-bit opaque pixels; the top bit is not read.
void Expand555(unsigned char * dst, const unsigned char * src, unsigned int count)
{
    for (unsigned int i = 0; i < count; ++i, src += 2, dst += 4)
    {
        const uint32_t p = Get16(src);
        dst[0] = static_cast<unsigned char>((p & 31) << 3);
        dst[1] = static_cast<unsigned char>(((p >> 5) & 31) << 3);
        dst[2] = static_cast<unsigned char>(((p >> 10) & 31) << 3);
        dst[3] = 255;
    }
}

// The rest of a file in a memory file named after it. A plain file's size is known, and up to
// the largest an image file can need it is read into one block; a large image then costs one
// allocation, which the heap can hand out again. Other files grow as they are read, so that a
// size claimed by a compressed file's header costs nothing until the data is there.
class WholeFile
{
public:
    explicit WholeFile(File & file)
    {
        const unsigned long position = file.Tell(), size = file.Size();
        const unsigned long rest = position < size ? size - position : 0;
        if (file.IsCompressed() || rest > largestImageFile)
            memory.Open(file);
        else if (rest != 0 && (block = static_cast<unsigned char *>(
                                   Alloc::New(static_cast<unsigned int>(BlockSize(rest))))) != nullptr)
            memory.Open(block, static_cast<unsigned int>(file.Read(block, rest, 1)));
        memory.SetName(file.Name());
    }
    ~WholeFile()
    {
        memory.Close();
        if (block)
            Alloc::Delete(block);
    }
    WholeFile(const WholeFile &) = delete;
    WholeFile & operator=(const WholeFile &) = delete;

    MemoryFile memory;

private:
    // A 4096 x 4096 image of 32-bit pixels with room for headers, or a PCX coded at worst.
    static constexpr unsigned long largestImageFile = 80ul << 20;
    static constexpr unsigned long megabyte = 1ul << 20;

    // Large blocks are whole megabytes: loads of files of about one size then take the same block
    // from the heap again, rather than fresh memory that the system must map and clear.
    static unsigned long BlockSize(unsigned long bytes)
    {
        return bytes < megabyte ? bytes : (bytes | (megabyte - 1)) + 1;
    }
    unsigned char * block = nullptr;
};

// The row readers fill 32-bit bitmaps, `fileBytes` bytes a pixel in the file turned into one
// pixel by expand. `height` is the bitmap's own, which may carry the top-to-bottom mark.
void ExpandRows(const Bitmap & bitmap, int32_t & height, MemoryFile & file, uint32_t fileBytes,
                ShortRow shortRow, Bitmap::RowConversion expand)
{
    if (!bitmap.IsValid() || bitmap.GetBytesPerPixel() != 4)
        return;
    const auto count = static_cast<uint32_t>(bitmap.GetWidth());
    ReadRows(file, RowOrder(bitmap.GetPtr(), height, bitmap.GetPitch()), count * fileBytes, count * 4,
             shortRow,
             [count, expand](unsigned char * dst, const unsigned char * src) { expand(dst, src, count); });
}
} // namespace

void ImageFile::PaletteRows(Bitmap & bitmap, int32_t & height, MemoryFile & file, bool keepPalette,
                            const uint32_t * colours)
{
    PackedColor * palette = bitmap.GetPalette();
    if (!bitmap.IsValid() ||
        (keepPalette ? bitmap.GetFormat() != Bitmap::Indexed8 || !palette : bitmap.GetBytesPerPixel() != 4))
        return;
    const auto count = static_cast<uint32_t>(bitmap.GetWidth());
    const RowOrder rows(bitmap.GetPtr(), height, bitmap.GetPitch());
    if (keepPalette)
    {
        for (unsigned int i = 0; i < Bitmap::PaletteSize; ++i)
            palette[i] = colours[i];
        ReadRows(file, rows, count, count, ShortRow::ZERO,
                 [count](unsigned char * dst, const unsigned char * src) { memcpy(dst, src, count); });
        return;
    }
    ReadRows(file, rows, count, count * 4, ShortRow::ZERO,
             [count, colours](unsigned char * dst, const unsigned char * src)
             {
                 for (uint32_t x = 0; x < count; ++x)
                     Put32(dst + 4 * x, colours[src[x]]);
             });
}

bool Bitmap::Load(const PString & name, const PString & directory, bool keepPalette)
{
    Done();
    File file;
    const char * folder = directory;
    const File::Result opened =
        folder && *folder ? file.Open(directory, name, File::MODE_READ) : file.Open(name, File::MODE_READ);
    return opened.Succeeded() && Load(file, keepPalette);
}

bool Bitmap::Load(File & file, bool keepPalette)
{
    Done();
    if (KindOf(file.Name()) == KIND_NONE)
        return false;
    WholeFile whole(file);
    return whole.memory.IsOpen() && Load(whole.memory, keepPalette);
}

bool Bitmap::Load(MemoryFile & file, bool keepPalette)
{
    Done();
    file.SeekSet(0);
    bool loaded = false;
    switch (KindOf(file.Name()))
    {
    case KIND_TGA:
        loaded = LoadTGA(file, keepPalette);
        break;
    case KIND_BMP:
        loaded = LoadBMP(file, keepPalette);
        break;
    case KIND_PCX:
        loaded = LoadPCX(file, keepPalette);
        break;
    case KIND_JPG:
        loaded = LoadJPG(file);
        break;
    case KIND_NONE:
        break;
    }
    if (!loaded)
        Done();
    return loaded;
}

bool Bitmap::LoadJPG(MemoryFile & file)
{
    if (!LoadJpeg(*this, file.Data(), file.Size()))
        return false;
    file.Close();
    return true;
}

bool Bitmap::Save(const char * name) const
{
    switch (KindOf(name))
    {
    case KIND_TGA:
        return SaveTGA(name);
    case KIND_BMP:
        return SaveBMP(name, false);
    default:
        return false;
    }
}

bool Bitmap::GetInfo(const char * name, Format & format, unsigned long & width, unsigned long & height)
{
    switch (KindOf(name))
    {
    case KIND_TGA:
        return GetInfoTGA(name, format, width, height);
    case KIND_BMP:
        return GetInfoBMP(name, format, width, height);
    case KIND_PCX:
        return GetInfoPCX(name, format, width, height);
    case KIND_JPG:
        return GetInfoJPG(name, format, width, height);
    case KIND_NONE:
        break;
    }
    return false;
}

bool Bitmap::GetInfoJPG(const char * name, Format & format, unsigned long & width, unsigned long & height)
{
    MemoryFile file;
    if (!file.Open(name) || !GetJpegInfo(file.Data(), file.Size(), width, height))
        return false;
    format = XRGB32;
    return true;
}

void Bitmap::Load32(MemoryFile & file)
{
    ExpandRows(*this, height, file, 4, ShortRow::ZERO, ops.copyRow);
}

void Bitmap::Load24(MemoryFile & file)
{
    ExpandRows(*this, height, file, 3, ShortRow::PAD, Expand24);
}

void Bitmap::Load16(MemoryFile & file)
{
    ExpandRows(*this, height, file, 2, ShortRow::REPEAT, ops.from16);
}

void Bitmap::Load15(MemoryFile & file)
{
    ExpandRows(*this, height, file, 2, ShortRow::REPEAT, Expand555);
}

void Bitmap::TGA16(MemoryFile & file)
{
    Load15(file);
}
} // namespace Kiv
