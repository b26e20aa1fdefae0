#include "ConfigData.h"

#include "CRuntime.h"
#include "ConfigDataIO.h"
#include "File.h"
#include "StringSerial.h"

#include <cstring>
#include <new>

namespace Kiv
{
namespace
{
const unsigned char header[4] = {'C', 'D', 0x01, 0x01};
// Records nest by recursion, one reader frame per level: a file nested deeper than any tree the
// text reader can build is refused instead of running the stack out, and the writer refuses to
// make a file the reader would refuse.
const int maxDepth = 500;

bool WriteWord(BinWriter & stream, uint32_t word)
{
    return StringSerial::WriteCounted(stream, word, nullptr, 0);
}

// An empty string is the length word alone; UTF-16 text carries the wide flag in it.
bool WriteRecord(BinWriter & stream, const PString & text, int encoding)
{
    if (text.Length() == 0)
        return WriteWord(stream, 0);
    if (encoding != File::ENCODING_UTF16)
        return text.Write(stream);
    ConfigDataIO::WideScratch wide;
    long characters = ConfigDataIO::ToWide(text, text.Length(), wide);
    return characters >= 0 &&
           StringSerial::WriteWide(stream, wide.Data(), static_cast<unsigned int>(characters));
}

uint64_t Remaining(File & file)
{
    uint64_t size = file.Size();
    return size > file.Tell() ? size - file.Tell() : 0;
}

unsigned long WriteMode(bool compressed)
{
    return (compressed ? File::MODE_WRITE_COMPRESSED : File::MODE_WRITE) | File::MODE_CREATE;
}

// A file that failed to close did not store all that was written.
bool WriteAndClose(const ConfigData & node, File & file, File::Result opened, int encoding)
{
    if (opened != File::RES_OK)
        return false;
    bool written = node.WriteBin(file, encoding);
    return file.Close() == File::RES_OK && written;
}

// An element count the rest of the file can hold, each element taking at least unit bytes.
bool ReadCount(File & file, unsigned int unit, int & count)
{
    unsigned int word = 0;
    if (!file.Read32(word) || word > 0x7FFFFFFFu || uint64_t(word) * unit > Remaining(file))
        return false;
    count = static_cast<int>(word);
    return true;
}
} // namespace

bool ConfigData::WriteBin(Writer & writer, int encoding) const
{
    return writer.Write(header, 4, 1) &&
           WriteBinFile(writer, encoding != 0 ? encoding : writer.GetEncoding());
}

bool ConfigData::WriteBin(File & file, int encoding) const
{
    FileWriter sink(file);
    return WriteBin(sink, encoding);
}

bool ConfigData::WriteBin(PString & bytes, int encoding) const
{
    PStringWriter sink(bytes);
    bool written = WriteBin(sink, encoding);
    return sink.Flush() && written;
}

bool ConfigData::WriteBin(const char * fileName, bool compressed, int encoding) const
{
    File file;
    return WriteAndClose(*this, file, file.Open(fileName, WriteMode(compressed)), encoding);
}

bool ConfigData::WriteBin(const PString & directory, const char * fileName, bool compressed,
                          int encoding) const
{
    File file;
    return WriteAndClose(*this, file, file.Open(directory, fileName, WriteMode(compressed)), encoding);
}

bool ConfigData::WriteBinFile(Writer & writer, int encoding) const
{
    return WriteBinNode(writer, encoding, 0);
}

bool ConfigData::WriteBinNode(Writer & writer, int encoding, int depth) const
{
    ConfigDataIO::SinkStream stream(writer);
    auto code = static_cast<unsigned char>(type);
    if (depth >= maxDepth || !WriteRecord(stream, name, encoding) || !writer.Write(&code, 1, 1))
        return false;
    int count = GetArrayCount();
    bool written = true;
    switch (type)
    {
    case TYPE_INT:
        written = WriteWord(stream, static_cast<uint32_t>(data.integer));
        break;
    case TYPE_FLOAT:
    {
        uint32_t bits = 0;
        std::memcpy(&bits, &data.real, 4);
        written = WriteWord(stream, bits);
        break;
    }
    case TYPE_STRING:
        written = WriteRecord(stream, data.text, encoding);
        break;
    case TYPE_BYTEARRAY:
        written = writer.Write(data.block, 4 + static_cast<unsigned int>(count), 1);
        break;
    case TYPE_INTARRAY:
    case TYPE_FLOATARRAY:
        written = writer.Write(data.block, 4 + 4 * static_cast<unsigned int>(count), 1);
        break;
    case TYPE_STRINGARRAY:
        written = WriteWord(stream, static_cast<uint32_t>(count));
        for (int i = 0; written && i < count; ++i)
            written = WriteRecord(stream, GetPStringArray()[i], encoding);
        break;
    default:
        break;
    }
    if (!written || !WriteWord(stream, static_cast<uint32_t>(GetChildCount())))
        return false;
    if (children != nullptr)
        for (const ConfigData * child : *children)
            if (!child->WriteBinNode(writer, encoding, depth + 1))
                return false;
    return true;
}

bool ConfigData::ReadBin(File & file)
{
    unsigned char start[4];
    if (file.Read(start, 1, 4) != 1 || std::memcmp(start, header, 4) != 0)
        return false;
    ClearData();
    return ReadBinFile(file);
}

bool ConfigData::ReadBin(const char * fileName)
{
    File file;
    return file.Open(fileName, File::MODE_READ) == File::RES_OK && ReadBin(file);
}

bool ConfigData::ReadBin(const PString & directory, const char * fileName)
{
    File file;
    return file.Open(directory, fileName, File::MODE_READ) == File::RES_OK && ReadBin(file);
}

bool ConfigData::ReadBinFile(File & file)
{
    return ReadBinNode(file, 0);
}

bool ConfigData::ReadBinNode(File & file, int depth)
{
    PString readName;
    unsigned char code = 0;
    if (depth >= maxDepth || !*this || !file.Read(readName) || !file.Read(code) || code > TYPE_STRINGARRAY)
        return false;
    // Unnamed nodes (the root, unnamed values) read back unnamed rather than named "".
    name = readName.Length() > 0 ? readName : PString();
    return ReadBinData(file, code) && ReadBinChildren(file, depth);
}

bool ConfigData::ReadBinData(File & file, int dataType)
{
    auto arrayType = static_cast<DataType>(dataType);
    int count = 0;
    void * block = nullptr;
    if (dataType == TYPE_NONE)
        ClearData();
    else if (dataType < TYPE_STRING)
    {
        int word = 0;
        if (!file.Read32(word))
            return false;
        ClearData();
        if (dataType == TYPE_INT)
            data.integer = word;
        else
            std::memcpy(&data.real, &word, 4);
    }
    else if (dataType == TYPE_STRING)
    {
        PString text;
        if (!file.Read(text))
            return false;
        ClearData();
        new (&data.text) PString(text.IsNull() ? PString("") : text);
    }
    else if (dataType != TYPE_STRINGARRAY)
    {
        unsigned int unit = dataType == TYPE_BYTEARRAY ? 1 : 4;
        if (!ReadCount(file, unit, count) || (block = NewBlock(arrayType, count)) == nullptr)
            return false;
        if (file.Read(Elements(arrayType, block), static_cast<unsigned long>(count), unit) !=
            static_cast<unsigned long>(count))
        {
            FreeBlock(arrayType, block);
            return false;
        }
    }
    else if (!ReadCount(file, 4, count) || (block = ReadStrings(file, count)) == nullptr)
        return false;
    if (block != nullptr)
    {
        ClearData();
        data.block = block;
    }
    type = dataType;
    return true;
}

// A string array block, or null (with the strings read so far released) when a record fails. An
// empty element reads back as the null handle it was most likely written from.
void * ConfigData::ReadStrings(File & file, int count)
{
    void * block = NewBlock(TYPE_STRINGARRAY, count);
    if (block == nullptr)
        return nullptr;
    auto * strings = static_cast<PString *>(Elements(TYPE_STRINGARRAY, block));
    for (int i = 0; i < count; ++i)
    {
        PString text;
        if (!file.Read(text))
        {
            static_cast<PStringArray *>(block)->count = i;
            FreeBlock(TYPE_STRINGARRAY, block);
            return nullptr;
        }
        new (strings + i) PString(text.Length() > 0 ? text : PString());
    }
    return block;
}

bool ConfigData::ReadBinChildren(File & file, int depth)
{
    unsigned int count = 0;
    if (!file.Read32(count))
        return false;
    for (; count > 0; --count)
    {
        ConfigData & child = New();
        if (!child)
            return false;
        if (!child.ReadBinNode(file, depth + 1))
        {
            Unlink(&child);
            delete &child;
            return false;
        }
    }
    return true;
}
} // namespace Kiv
