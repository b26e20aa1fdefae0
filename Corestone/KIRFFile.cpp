#include "KIRFFile.h"

#include "Alloc.h"
#include "FileBlock.h"
#include "PString.h"
#include "String.h"

#include <climits>
#include <cstring>

namespace Kiv
{
const ResultTable KIRFFile::results[] = {
    {"RES_UNKNOWN", "Unknown Error"},
    {"RES_NOTKIRF", "Not a KIRF file"},
    {"RES_WRONGID", "Identifer not the same as the supplied id"},
    {nullptr, nullptr},
};

namespace
{
const uint32_t emptyCount = 0xFFFFFFFF;
const unsigned char magic[4] = {'K', 'I', 'R', 'F'};

uint32_t Padding(uint32_t characters)
{
    return (0u - characters) & 3u;
}

// Fields a short read leaves out stay 0.
uint32_t Stored32(File & file)
{
    unsigned int value = 0;
    file.Read32(value);
    return value;
}
} // namespace

unsigned int KIRFFile::WriteHeader(unsigned long id)
{
    const unsigned int sizeField = static_cast<unsigned int>(Tell()) + 4;
    Write(magic, 1, sizeof(magic));
    Write32(0u);
    Write32(static_cast<unsigned int>(id));
    return sizeField;
}

unsigned int KIRFFile::WriteBlock(unsigned long id, unsigned int length, const void * data)
{
    const unsigned int lengthField = static_cast<unsigned int>(Tell()) + 4;
    Write32(static_cast<unsigned int>(id));
    Write32(length);
    if (data != nullptr && length != 0)
        Write(data, length, 1);
    return lengthField;
}

void KIRFFile::WriteAt(unsigned int offset, unsigned long value)
{
    const unsigned long back = Tell();
    SeekSet(static_cast<long>(offset));
    Write32(static_cast<unsigned int>(value));
    SeekSet(static_cast<long>(back));
}

void KIRFFile::WriteSizeAt(unsigned int offset)
{
    WriteAt(offset, Tell() - (offset + 4ul));
}

bool KIRFFile::WritePadded(const PString & text)
{
    return WritePadded(String(text));
}

bool KIRFFile::WritePadded(const String & text)
{
    const char * characters = text;
    if (characters == nullptr)
        return Write32(0u);
    const uint32_t length = text.Length();
    if (length == 0)
        return Write32(emptyCount);
    const unsigned char zeros[3] = {0, 0, 0};
    const uint32_t padding = Padding(length);
    return Write32(length + 1) && Write(characters, length, 1) == length &&
           (padding == 0 || Write(zeros, padding, 1) == padding);
}

KIRFFile::Result KIRFFile::ReadHeader(unsigned long id)
{
    unsigned int size = 0;
    return ReadHeader(id, size);
}

KIRFFile::Result KIRFFile::ReadHeader(unsigned long id, unsigned int & size)
{
    unsigned char stored[4] = {0, 0, 0, 0};
    Read(stored, 1, sizeof(stored));
    size = Stored32(*this) - 4;
    const uint32_t fileId = Stored32(*this);
    if (memcmp(stored, magic, sizeof(magic)) != 0)
        return RES_NOTKIRF;
    return fileId == static_cast<uint32_t>(id) ? RES_OK : RES_WRONGID;
}

KIRFFile::Result KIRFFile::ReadBlockHeader(unsigned long & id, unsigned int & length)
{
    id = Stored32(*this);
    length = Stored32(*this);
    return RES_OK;
}

KIRFFile::Result KIRFFile::ReadBlock(unsigned long id, unsigned int & size, void * buffer)
{
    unsigned long blockId = 0;
    unsigned int length = 0;
    ReadBlockHeader(blockId, length);
    const unsigned int capacity = size;
    size = length;
    if (blockId != static_cast<uint32_t>(id))
        return RES_WRONGID;
    if (buffer == nullptr)
        return RES_OK;
    const unsigned int wanted = capacity < length ? capacity : length;
    const unsigned long got = wanted != 0 ? Read(buffer, wanted, 1) : 0;
    Skip(length - static_cast<uint32_t>(got));
    return RES_OK;
}

// Reads a padded string's characters into a Kiv::Alloc block (null for the null and empty
// strings, told apart by count).
KIRFFile::Result KIRFFile::ReadPaddedBytes(unsigned char *& bytes, uint32_t & count)
{
    bytes = nullptr;
    count = Stored32(*this);
    if (count == emptyCount || count < 2)
        return RES_OK;
    const uint32_t characters = count - 1;
    // A count past the end of the data is a damaged file, never a reason to allocate for it.
    uint32_t got = 0;
    bytes = ReadFileBlock(*this, characters, got);
    if (bytes == nullptr || got != characters)
    {
        if (bytes != nullptr)
            Alloc::Delete(bytes);
        bytes = nullptr;
        return RES_UNKNOWN;
    }
    bytes[got] = 0;
    Skip(Padding(characters));
    return RES_OK;
}

template <class Text>
KIRFFile::Result KIRFFile::ReadPaddedText(Text & text)
{
    unsigned char * bytes;
    uint32_t count;
    const Result result = ReadPaddedBytes(bytes, count);
    if (bytes != nullptr)
    {
        text = reinterpret_cast<const char *>(bytes);
        Alloc::Delete(bytes);
    }
    else
    {
        text = count == emptyCount && result.Succeeded() ? Text("") : Text();
    }
    return result;
}

KIRFFile::Result KIRFFile::ReadPadded(PString & text)
{
    return ReadPaddedText(text);
}

KIRFFile::Result KIRFFile::ReadPadded(String & text)
{
    return ReadPaddedText(text);
}

// Moves forward, never past the end: a length that lies about the payload must not seek the
// file out of its range.
void KIRFFile::Skip(uint32_t bytes)
{
    const unsigned long rest = RestOf(*this);
    unsigned long step = bytes < rest ? bytes : rest;
    while (step != 0)
    {
        const unsigned long piece = step < LONG_MAX ? step : LONG_MAX;
        SeekCur(static_cast<long>(piece));
        step -= piece;
    }
}

KIRFWriteSize::~KIRFWriteSize()
{
    if (!file.IsOpen() || (file.GetMode() & File::MODE_WRITE_MASK) != File::MODE_WRITE)
        return;
    try
    {
        file.WriteSizeAt(offset);
    }
    catch (const Exception &)
    {
        // A destructor must not throw; the length stays as it was.
    }
}
} // namespace Kiv
