#include "MemoryFile.h"

#include "Alloc.h"
#include "CRuntime.h"
#include "FileBlock.h"
#include "PString.h"
#include "StringSerial.h"
#include "UnicodeString.h"

#include <climits>
#include <cstdlib>
#include <cstring>

namespace Kiv
{
namespace
{
bool HasMark(const unsigned char * bytes)
{
    return bytes[0] == 0xFF && bytes[1] == 0xFE;
}

// Room for the 8-bit form of wide text with its terminator: a character of the locale's multibyte
// set never takes more than MB_CUR_MAX bytes.
size_t MultiByteRoom(size_t characters)
{
    return characters * MB_CUR_MAX + 1;
}

unsigned char * NewBlock(size_t bytes)
{
    return bytes <= UINT_MAX ? static_cast<unsigned char *>(Alloc::New(static_cast<unsigned int>(bytes)))
                             : nullptr;
}

// The unit count up to and including the next line feed, or all that remain.
size_t LineUnits(const unsigned char * units, size_t count)
{
    for (size_t i = 0; i < count; ++i)
        if (units[2 * i] == '\n' && units[2 * i + 1] == 0)
            return i + 1;
    return count;
}
} // namespace

unsigned long RestOf(File & file)
{
    if (!file.IsOpen())
        return 0;
    const unsigned long position = file.Tell();
    const unsigned long end = file.Size();
    return position < end ? end - position : 0;
}

unsigned char * ReadFileBlock(File & file, uint32_t bytes, uint32_t & got)
{
    const uint32_t firstStep = 1u << 20;
    uint32_t room = bytes < firstStep ? bytes : firstStep;
    unsigned char * block = NewBlock(size_t(room) + 1);
    got = 0;
    while (block != nullptr && got < bytes)
    {
        if (got == room)
        {
            const uint32_t grown = bytes - room < room ? bytes : 2 * room;
            unsigned char * larger = NewBlock(size_t(grown) + 1);
            if (larger == nullptr)
                break;
            memcpy(larger, block, got);
            Alloc::Delete(block);
            block = larger;
            room = grown;
        }
        const unsigned long read = file.Read(block + got, room - got, 1);
        if (read == 0)
            break;
        got += static_cast<uint32_t>(read);
    }
    if (block != nullptr && got == 0)
    {
        Alloc::Delete(block);
        block = nullptr;
    }
    return block;
}

MemoryFile::MemoryFile(const void * data, unsigned int size, bool text, int encoding)
{
    Open(data, size, text, encoding);
}

MemoryFile::MemoryFile(File & file, bool text, int encoding)
{
    Open(file, text, encoding);
}

MemoryFile::MemoryFile(File & file, unsigned int size, bool text, int encoding)
{
    Open(file, size, text, encoding);
}

MemoryFile::MemoryFile(const char * fileName, unsigned int size)
{
    Open(fileName, size);
}

MemoryFile::MemoryFile(const MemoryFile & other)
{
    *this = other;
}

MemoryFile & MemoryFile::operator=(const MemoryFile & other)
{
    if (this == &other)
        return *this;
    Close();
    if (other.owns)
    {
        unsigned char * copy = NewBlock(other.size);
        if (copy == nullptr)
            return *this;
        memcpy(copy, other.start, other.size);
        Adopt(copy, other.size, true);
    }
    else
    {
        Adopt(other.start, other.size, false);
    }
    cursor = other.cursor;
    name = other.name;
    return *this;
}

MemoryFile::~MemoryFile()
{
    Close();
}

void MemoryFile::Close()
{
    if (owns)
        Alloc::Delete(start);
    start = nullptr;
    cursor = 0;
    size = 0;
    owns = false;
    name = AnsiString();
}

bool MemoryFile::Adopt(unsigned char * block, uint32_t bytes, bool owned)
{
    start = block;
    size = bytes;
    cursor = 0;
    owns = owned;
    return start != nullptr;
}

bool MemoryFile::Open(const void * data, unsigned int bytes, bool text, int encoding)
{
    Close();
    if (bytes == 0 || data == nullptr)
        return false;
    auto * block = static_cast<unsigned char *>(const_cast<void *>(data));
    if (!text || encoding == File::ENCODING_ANSI)
        return Adopt(block, bytes, false);
    const bool marked = encoding == File::ENCODING_DEFAULT && bytes >= 2 && HasMark(block);
    if (marked && bytes == 2)
        return false;
    if (encoding != File::ENCODING_UTF16 && !marked)
        return Adopt(block, bytes, false);
    const unsigned skip = marked ? 2 : 0;
    if (ConvertUtf16(block + skip, bytes - skip, false))
        return true;
    // Text the locale cannot express is handed over as it is rather than lost.
    Close();
    return Adopt(block, bytes, false);
}

// UTF-16 text to 8-bit text in an owned block, line by line when byLine is set. Conversion
// stops at a line that yields nothing (one that cannot be converted, or begins with a NUL);
// false when nothing was converted.
bool MemoryFile::ConvertUtf16(const unsigned char * units, uint32_t bytes, bool byLine)
{
    const size_t count = bytes / 2;
    const size_t room = MultiByteRoom(count);
    unsigned char * block = NewBlock(room);
    if (block == nullptr)
        return false;
    size_t total = 0;
    for (size_t first = 0; first < count;)
    {
        const size_t line = byLine ? LineUnits(units + 2 * first, count - first) : count - first;
        UnicodeString wide = UnicodeString::FromUtf16(units + 2 * first, static_cast<unsigned int>(line));
        const long converted =
            CRuntime::WideToMultiByte(wide, wide.Length(), reinterpret_cast<char *>(block + total));
        if (converted <= 0)
            break;
        total += static_cast<size_t>(converted);
        first += line;
    }
    if (total == 0)
    {
        Alloc::Delete(block);
        return false;
    }
    block[total] = 0;
    return Adopt(block, static_cast<uint32_t>(total), true);
}

bool MemoryFile::Open(File & file, unsigned int bytes, bool text, int encoding)
{
    Close();
    const unsigned long rest = RestOf(file);
    if (bytes > rest)
        bytes = static_cast<unsigned int>(rest);
    if (bytes == 0)
        return false;
    const unsigned long position = file.Tell();
    bool wide = text && encoding == File::ENCODING_UTF16;
    if (text && encoding == File::ENCODING_DEFAULT)
    {
        unsigned char mark[2] = {0, 0};
        wide = bytes >= 2 && file.Read(mark, 1, 2) == 1 && HasMark(mark);
        if (wide && bytes == 2)
            return false;
        if (wide)
            bytes -= 2;
        else
            file.SeekSet(static_cast<long>(position));
    }
    if (!Load(file, bytes, wide))
        return false;
    name = file.Name();
    return true;
}

bool MemoryFile::Load(File & file, uint32_t bytes, bool wide)
{
    uint32_t got = 0;
    unsigned char * block = ReadFileBlock(file, bytes, got);
    if (block == nullptr)
        return false;
    if (!wide)
        return Adopt(block, got, true);
    const bool converted = ConvertUtf16(block, got, true);
    Alloc::Delete(block);
    return converted;
}

bool MemoryFile::Open(File & file, bool text, int encoding)
{
    const unsigned long rest = RestOf(file);
    return Open(file, static_cast<unsigned int>(rest < UINT_MAX ? rest : UINT_MAX), text, encoding);
}

bool MemoryFile::Open(const char * fileName, unsigned int bytes)
{
    Close();
    File file;
    if (!file.Open(fileName, File::MODE_READ).Succeeded())
        return false;
    return bytes != 0 ? Open(file, bytes) : Open(file);
}

bool MemoryFile::Open(unsigned int bytes)
{
    Close();
    unsigned char * block = bytes != 0 ? NewBlock(bytes) : nullptr;
    if (block == nullptr)
        return false;
    memset(block, 0, bytes);
    return Adopt(block, bytes, true);
}

unsigned int MemoryFile::Read(void * data, unsigned int count, unsigned int itemSize)
{
    const uint64_t bytes = static_cast<uint64_t>(count) * itemSize;
    if (bytes == 0 || bytes > Remaining())
        return 0;
    memcpy(data, start + cursor, static_cast<size_t>(bytes));
    cursor += static_cast<uint32_t>(bytes);
    return static_cast<unsigned int>(bytes);
}

int MemoryFile::Peek() const
{
    return Remaining() != 0 ? start[cursor] : -1;
}

bool MemoryFile::Read(PString & text, bool)
{
    uint32_t word = 0;
    const bool counted = ReadItem(word);
    const bool wide = (word & StringSerial::WideFlag) != 0;
    const uint32_t bytes = word & ~StringSerial::WideFlag;
    if (bytes > Remaining())
    {
        text = PString("");
        return false;
    }
    const unsigned char * characters = start + cursor;
    cursor += bytes;
    if (!wide)
        text = PString(reinterpret_cast<const char *>(characters), bytes);
    else
        text = PString(AnsiString(UnicodeString::FromUtf16(characters, bytes / 2)));
    return counted;
}

bool MemoryFile::Read(UnicodeString & text)
{
    return text.Read(*this);
}

unsigned int MemoryFile::Write(const void * data, unsigned int bytes)
{
    if (bytes == 0 || bytes > Remaining())
        return 0;
    memcpy(start + cursor, data, bytes);
    cursor += bytes;
    return bytes;
}

bool MemoryFile::Write(const UnicodeString & text)
{
    return text.Write(*this);
}

bool MemoryFile::Write(const PString & text)
{
    return text.Write(*this);
}

unsigned int MemoryFile::Seek(int offset, File::FileSeek origin)
{
    int64_t target;
    switch (origin)
    {
    case File::FROM_START:
        target = offset;
        break;
    case File::FROM_CURRENT:
        target = static_cast<int64_t>(cursor) + offset;
        break;
    case File::FROM_END:
        target = static_cast<int64_t>(size) - offset;
        break;
    default:
        return cursor;
    }
    if (target < 0)
        target = 0;
    cursor = target > UINT32_MAX ? UINT32_MAX : static_cast<uint32_t>(target);
    return cursor;
}
} // namespace Kiv
