#include "ConfigData.h"

#include "CRuntime.h"
#include "ConfigDataIO.h"
#include "File.h"

#include <cstring>

namespace Kiv
{
namespace
{
const char lineEnd[] = "\r\n";
const char blanks[] = "                ";
const int blankPiece = sizeof blanks - 1;
// Lines of a byte array hold this many bytes, after a fixed indent of four blanks.
const int bytesPerLine = 32;
const int wrapColumn = 100;
const int wrapSlack = 50;
// Arrays this long get their element count as a comment.
const int countedLength = 10;

bool Contains(const char * set, char character)
{
    return character != 0 && std::strchr(set, character) != nullptr;
}

bool NeedsEscapes(const String & text)
{
    for (unsigned int i = 0; i < text.Length(); ++i)
        if (Contains("`\\\b\t\r\n\"", static_cast<char>(text[i])))
            return true;
    return false;
}

bool NeedsQuotes(const String & text)
{
    if (text[0u] >= '0' && text[0u] <= '9')
        return true;
    for (unsigned int i = 0; i < text.Length(); ++i)
        if (Contains("#/ ,;=(){}", static_cast<char>(text[i])))
            return true;
    return false;
}

char EscapeLetter(char character)
{
    switch (character)
    {
    case '\b':
        return 'b';
    case '\t':
        return 't';
    case '\n':
        return 'n';
    case '\r':
        return 'r';
    default:
        return character;
    }
}

String Escaped(const String & text)
{
    String result("\"");
    for (unsigned int i = 0; i < text.Length(); ++i)
    {
        char character = static_cast<char>(text[i]);
        char piece[3] = {'\\', EscapeLetter(character), 0};
        result += Contains("`\\\b\t\r\n\"", character) ? piece : piece + 1;
    }
    result += "\"";
    return result;
}

String IntText(int value)
{
    char number[16];
    return String(CRuntime::Itoa(value, number, 10));
}

String FloatString(float value)
{
    char number[ConfigData::FloatTextSize];
    ConfigData::FloatText(value, number);
    return String(number);
}

String FormattedName(const PString & text)
{
    String formatted(text);
    ConfigData::FormatDataString(formatted);
    return formatted;
}
} // namespace

long ConfigDataIO::ToWide(const char * text, unsigned int length, WideScratch & wide)
{
    // The conversion reads up to a NUL, which a piece of a longer text does not have.
    TextOps::Scratch<char, 256> piece;
    char * copy = piece.Reserve(static_cast<size_t>(length) + 1);
    wchar_t * out = wide.Reserve(static_cast<size_t>(length) + 1);
    if (copy == nullptr || out == nullptr)
        return -1;
    std::memcpy(copy, text, length);
    copy[length] = 0;
    return CRuntime::MultiByteToWide(copy, length, out);
}

bool ConfigData::FileWriter::Write(const void * data, unsigned int size, unsigned int count)
{
    return file.Write(data, count, size) == count;
}

int ConfigData::FileWriter::GetEncoding()
{
    return file.GetEncoding();
}

ConfigData::PStringWriter::~PStringWriter()
{
    Flush();
    if (buffer != nullptr)
        Alloc::Delete(buffer);
}

int ConfigData::PStringWriter::GetEncoding()
{
    return File::ENCODING_ANSI;
}

bool ConfigData::PStringWriter::Write(const void * data, unsigned int size, unsigned int count)
{
    uint64_t bytes = uint64_t(size) * count;
    if (failed || bytes > TextOps::MaxTextBytes - used)
    {
        failed = true;
        return false;
    }
    auto needed = static_cast<unsigned int>(used + bytes);
    if (needed > capacity)
    {
        unsigned int grown = needed > 2 * capacity ? needed : 2 * capacity;
        auto * larger = static_cast<unsigned char *>(Alloc::New(grown));
        if (larger == nullptr)
        {
            failed = true;
            return false;
        }
        if (used > 0)
            std::memcpy(larger, buffer, used);
        if (buffer != nullptr)
            Alloc::Delete(buffer);
        buffer = larger;
        capacity = grown;
    }
    std::memcpy(buffer + used, data, static_cast<size_t>(bytes));
    used = needed;
    return true;
}

bool ConfigData::PStringWriter::Flush()
{
    if (used == 0)
        return !failed;
    unsigned int old = text.Length();
    unsigned char * joined =
        old <= TextOps::MaxTextBytes - used ? static_cast<unsigned char *>(Alloc::New(old + used)) : nullptr;
    if (joined != nullptr)
    {
        if (old > 0)
            std::memcpy(joined, static_cast<const char *>(text), old);
        std::memcpy(joined + old, buffer, used);
        PString appended(reinterpret_cast<const char *>(joined), old + used);
        Alloc::Delete(joined);
        failed = failed || appended.IsNull();
        if (!appended.IsNull())
            text = appended;
    }
    failed = failed || joined == nullptr;
    used = 0;
    return !failed;
}

void ConfigData::FormatDataString(String & text)
{
    if (text.Length() == 0)
        text = "\"\"";
    else if (NeedsEscapes(text))
        text = Escaped(text);
    else if (NeedsQuotes(text))
    {
        text.Ins("\"", 0);
        text += "\"";
    }
}

bool ConfigData::WriteChars(Writer & writer, const char * text, int length, int encoding)
{
    if (length <= 0)
        return false;
    if (encoding != File::ENCODING_UTF16)
        return writer.Write(text, static_cast<unsigned int>(length), 1);
    ConfigDataIO::WideScratch wide;
    long characters = ConfigDataIO::ToWide(text, static_cast<unsigned int>(length), wide);
    if (characters <= 0)
        return false;
    size_t units = CRuntime::Utf16Units(wide.Data(), static_cast<size_t>(characters));
    TextOps::Scratch<unsigned char, 1024> bytes;
    unsigned char * out = bytes.Reserve(2 * units);
    if (out == nullptr)
        return false;
    CRuntime::EncodeUtf16(wide.Data(), static_cast<size_t>(characters), out);
    return writer.Write(out, static_cast<unsigned int>(2 * units), 1);
}

bool ConfigData::WritePString(Writer & writer, const PString & text, int encoding)
{
    return WriteChars(writer, text, static_cast<int>(text.Length()), encoding);
}

bool ConfigData::WriteTabs(Writer & writer, int level, int encoding)
{
    for (int left = 2 * level; left > 0; left -= blankPiece)
        if (!WriteChars(writer, blanks, left < blankPiece ? left : blankPiece, encoding))
            return false;
    return true;
}

// A continuation line starts at the indent, which is an odd column for most arrays: the blanks go
// out in the same pieces as WriteTabs writes them.
bool ConfigData::WriteWrap(Writer & writer, const char * text, int length, int & column, int indent,
                           int encoding)
{
    column += length;
    if (column > wrapColumn && indent >= 0 && column > indent + wrapSlack)
    {
        if (!WriteChars(writer, lineEnd, 2, encoding))
            return false;
        for (int left = indent; left > 0; left -= blankPiece)
            if (!WriteChars(writer, blanks, left < blankPiece ? left : blankPiece, encoding))
                return false;
        column = indent + length;
    }
    return WriteChars(writer, text, length, encoding);
}

bool ConfigData::Write(Writer & writer, int encoding) const
{
    return WriteChildList(writer, 0, encoding != 0 ? encoding : writer.GetEncoding());
}

bool ConfigData::Write(File & file, int encoding) const
{
    FileWriter sink(file);
    return Write(sink, encoding);
}

bool ConfigData::Write(PString & text, int encoding) const
{
    PStringWriter sink(text);
    bool written = Write(sink, encoding);
    return sink.Flush() && written;
}

bool ConfigData::WriteChildList(Writer & writer, int level, int encoding) const
{
    if (children == nullptr)
        return true;
    bool previousBlock = false;
    bool first = true;
    for (const ConfigData * child : *children)
    {
        bool block = child->HasChildren();
        if (!first && (block || previousBlock) && !WriteChars(writer, lineEnd, 2, encoding))
            return false;
        if (!child->WriteBlock(writer, level, encoding))
            return false;
        previousBlock = block;
        first = false;
    }
    return true;
}

bool ConfigData::WriteBlock(Writer & writer, int level, int encoding) const
{
    return HasChildren() ? WriteDataBlock(writer, level, encoding) : WriteDataItem(writer, level, encoding);
}

bool ConfigData::WriteText(Writer & writer, const String & text, int & column, int encoding)
{
    column += static_cast<int>(text.Length());
    return WriteChars(writer, text, static_cast<int>(text.Length()), encoding);
}

// The indentation and the name, if there is one.
bool ConfigData::WriteLead(Writer & writer, int level, int & column, int encoding) const
{
    column = 2 * level;
    return WriteTabs(writer, level, encoding) &&
           (name.IsNull() || WriteText(writer, FormattedName(name), column, encoding));
}

bool ConfigData::WriteEnclosed(Writer & writer, int & column, int encoding) const
{
    return WriteText(writer, "(", column, encoding) && WriteValue(writer, column, encoding) &&
           WriteChars(writer, ")", 1, encoding);
}

bool ConfigData::WriteDataBlock(Writer & writer, int level, int encoding) const
{
    int column = 0;
    if (!WriteLead(writer, level, column, encoding) ||
        (type != TYPE_NONE && !WriteEnclosed(writer, column, encoding)))
        return false;
    return WriteChars(writer, lineEnd, 2, encoding) && WriteTabs(writer, level, encoding) &&
           WriteChars(writer, "{\r\n", 3, encoding) && WriteChildList(writer, level + 1, encoding) &&
           WriteTabs(writer, level, encoding) && WriteChars(writer, "}\r\n", 3, encoding);
}

bool ConfigData::WriteDataItem(Writer & writer, int level, int encoding) const
{
    if (name.IsNull() && type == TYPE_NONE)
        return true;
    int column = 0;
    // An unnamed scalar still gets its equals sign, which the reader takes as an unnamed node.
    bool scalar = type != TYPE_NONE && type < TYPE_BYTEARRAY;
    if (!WriteLead(writer, level, column, encoding) ||
        ((!name.IsNull() || scalar) && !WriteText(writer, " = ", column, encoding)))
        return false;
    int count = GetArrayCount();
    // An array of fewer than two elements is parenthesised so that it reads back as an array.
    bool enclosed = !scalar && type != TYPE_NONE && count < 2;
    if (enclosed && !WriteEnclosed(writer, column, encoding))
        return false;
    if (!enclosed && type != TYPE_NONE && !WriteValue(writer, column, encoding))
        return false;
    String end(";");
    if (count >= countedLength)
    {
        end += "//";
        end += IntText(count);
    }
    end += lineEnd;
    return WriteChars(writer, end, static_cast<int>(end.Length()), encoding);
}

bool ConfigData::WriteValue(Writer & writer, int & column, int encoding) const
{
    if (type < TYPE_BYTEARRAY)
        return WriteScalar(writer, column, encoding);
    return type == TYPE_BYTEARRAY ? WriteBytes(writer, encoding) : WriteElements(writer, column, encoding);
}

bool ConfigData::WriteScalar(Writer & writer, int & column, int encoding) const
{
    String text = type == TYPE_INT     ? IntText(data.integer)
                  : type == TYPE_FLOAT ? FloatString(data.real)
                                       : FormattedName(data.text);
    return WriteText(writer, text, column, encoding);
}

// Every element after the first goes out with its comma in front, so a wrapped line starts with
// the comma one column left of the values above.
bool ConfigData::WriteElements(Writer & writer, int & column, int encoding) const
{
    int indent = column - 1;
    int count = GetArrayCount();
    for (int i = 0; i < count; ++i)
    {
        String piece = type == TYPE_INTARRAY     ? IntText(GetIntArray()[i])
                       : type == TYPE_FLOATARRAY ? FloatString(GetFloatArray()[i])
                                                 : FormattedName(GetPStringArray()[i]);
        if (i > 0)
            piece.Ins(",", 0);
        auto length = static_cast<int>(piece.Length());
        bool written = i == 0 ? WriteText(writer, piece, column, encoding)
                              : WriteWrap(writer, piece, length, column, indent, encoding);
        if (!written)
            return false;
    }
    return true;
}

bool ConfigData::WriteBytes(Writer & writer, int encoding) const
{
    static const char digits[] = "0123456789ABCDEF";
    if (!WriteChars(writer, ": ", 2, encoding))
        return false;
    const unsigned char * bytes = GetByteArray();
    int count = GetArrayCount();
    for (int start = 0; start < count; start += bytesPerLine)
    {
        char line[6 + 2 * bytesPerLine] = "\r\n    ";
        int length = 6;
        for (int i = start; i < count && i < start + bytesPerLine; ++i)
        {
            line[length++] = digits[bytes[i] >> 4];
            line[length++] = digits[bytes[i] & 15];
        }
        if (!WriteChars(writer, line, length, encoding))
            return false;
    }
    return true;
}
} // namespace Kiv
