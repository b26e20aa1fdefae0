#include "MemoryFile.h"
#include "File.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using Kiv::DynamicBuffer;
using Kiv::File;
using Kiv::MemoryFile;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;

namespace
{
using Bytes = std::vector<unsigned char>;

Bytes Utf16(const char16_t * text, bool mark)
{
    Bytes bytes;
    if (mark)
        bytes = {0xFF, 0xFE};
    for (; *text; ++text)
        bytes.insert(bytes.end(),
                     {static_cast<unsigned char>(*text & 0xFF), static_cast<unsigned char>(*text >> 8)});
    return bytes;
}

std::string Text(const MemoryFile & memory)
{
    return std::string(reinterpret_cast<const char *>(memory.Data()), memory.Size());
}

Bytes Contents(const DynamicBuffer & buffer)
{
    const auto * data = static_cast<const unsigned char *>(buffer.GetData());
    return Bytes(data, data + buffer.GetLength());
}

bool LocaleConvertsUtf8()
{
    wchar_t probe[4];
    return mbstowcs(probe, "\xC3\xA9", 4) == 1;
}

// The file's text loaded as 8-bit text with the given encoding.
std::string LoadText(const std::string & name, int encoding)
{
    File file;
    EXPECT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_READ));
    MemoryFile memory(file, true, encoding);
    return memory.IsOpen() ? Text(memory) : "(not open)";
}
} // namespace

TEST(MemoryFile, OpenOverMemoryViewsOrConvertsText)
{
    const Bytes plain = {'a', 'b', 'c'};
    MemoryFile memory;
    EXPECT_FALSE(memory.Open(plain.data(), 0));
    EXPECT_FALSE(memory.IsOpen());

    // Bytes are viewed in place, whatever they hold, unless they are text to convert.
    const Bytes marked = Utf16(u"hi", true);
    for (auto [text, encoding] : {std::pair{false, 0}, {false, 2}, {true, 1}})
    {
        ASSERT_TRUE(memory.Open(marked.data(), 6, text, encoding));
        EXPECT_EQ(marked.data(), memory.Data());
        EXPECT_EQ(6u, memory.Size());
    }

    // The mark alone is no text; with the mark the rest converts.
    EXPECT_FALSE(memory.Open(marked.data(), 2, true, 0));
    ASSERT_TRUE(memory.Open(marked.data(), 6, true, 0));
    EXPECT_EQ("hi", Text(memory));

    // Encoding 2 converts without looking for a mark; an odd last byte is no unit.
    const Bytes bare = Utf16(u"line\r\n", false);
    ASSERT_TRUE(memory.Open(bare.data(), static_cast<unsigned>(bare.size()) + 1, true, 2));
    EXPECT_EQ("line\r\n", Text(memory));

    // Outside ASCII, text the locale cannot convert stays unconverted.
    const Bytes wide = Utf16(u"\u00e9\u20ac\U0001F600", true);
    const std::string saved = setlocale(LC_ALL, nullptr);
    if (setlocale(LC_ALL, "C") && !LocaleConvertsUtf8())
    {
        ASSERT_TRUE(memory.Open(wide.data(), static_cast<unsigned>(wide.size()), true, 0));
        EXPECT_EQ(wide, Bytes(memory.Data(), memory.Data() + memory.Size()));
    }
    setlocale(LC_ALL, saved.c_str());
}

TEST(MemoryFile, ReadsAreAllOrNothing)
{
    const Bytes bytes = {0x01, 0x02, 0x03, 0x04, 0x05, 0x06, 0x07, 0x00, 0x00, 0xC0, 0x3F};
    MemoryFile memory(bytes.data(), static_cast<unsigned>(bytes.size()));
    unsigned char out[8] = {};
    // The byte count, not the item count.
    EXPECT_EQ(4u, memory.Read(out, 2, 2));
    EXPECT_EQ((Bytes{1, 2, 3, 4}), Bytes(out, out + 4));
    EXPECT_EQ(0x0605u, memory.Readuword());
    EXPECT_EQ(0x07, memory.Readsbyte());
    EXPECT_EQ(1.5f, memory.Readfloat());
    EXPECT_TRUE(memory.Eof());
    EXPECT_EQ(-1, memory.Peek());

    // Four bytes with three remaining: nothing, and the cursor stays.
    memory.SeekEnd(3);
    EXPECT_EQ(0u, memory.Read(out, 4, 1));
    long big = 7;
    EXPECT_FALSE(memory.Read(big));
    EXPECT_EQ(8u, memory.Tell());
    // Counts whose product does not fit 32 bits are refused, not wrapped.
    EXPECT_EQ(0u, memory.Read(out, 0x40000000u, 4));
    EXPECT_EQ(0u, memory.SeekSet(0));
    EXPECT_TRUE(memory.Read(big));
    EXPECT_EQ(0x04030201, big);

    // Seeks clamp at the start only; an unknown origin leaves the cursor.
    EXPECT_EQ(11u, memory.SeekEnd(0));
    EXPECT_EQ(7u, memory.SeekEnd(4));
    EXPECT_EQ(0u, memory.SeekCur(-20));
    EXPECT_EQ(0u, memory.SeekEnd(12));
    EXPECT_EQ(0u, memory.Seek(5, static_cast<File::FileSeek>(3)));
    // No upper clamp: past the end stays past it, and reads and writes find nothing there.
    EXPECT_EQ(25u, memory.SeekSet(25));
    EXPECT_EQ(15u, memory.SeekCur(-10));
    EXPECT_EQ(0, memory.Readubyte());
    EXPECT_EQ(-1, memory.Peek());
    EXPECT_EQ(0x7FFFFFFFu, memory.SeekSet(0x7FFFFFFF));
    EXPECT_EQ(0xFFFFFFFEu, memory.SeekCur(0x7FFFFFFF));
    EXPECT_EQ(0xFFFFFFFFu, memory.SeekCur(0x7FFFFFFF));
    EXPECT_EQ(0u, memory.Write("x", 1));
}

TEST(MemoryFile, WritesFitTheBlockAndCopiesOwnTheirBlock)
{
    MemoryFile memory;
    EXPECT_FALSE(memory.Open(0u));
    ASSERT_TRUE(memory.Open(6u));
    EXPECT_EQ(Bytes(6, 0), Bytes(memory.Data(), memory.Data() + 6));
    EXPECT_EQ(4u, memory.Write("abcd", 4));
    EXPECT_EQ(0u, memory.Write("xyz", 3));
    EXPECT_EQ(2u, memory.Write("ef", 2));

    MemoryFile copy(memory);
    EXPECT_EQ(6u, copy.Tell());
    memory.SeekSet(0);
    memory.Write("Z", 1);
    EXPECT_EQ("abcdef", Text(copy));

    // A view stays a view of the caller's memory (a char pointer alone would name a file).
    const char * text = "view";
    MemoryFile view(static_cast<const void *>(text), 4);
    MemoryFile other;
    other = view;
    EXPECT_EQ(reinterpret_cast<const unsigned char *>(text), other.Data());
    other = other;
    EXPECT_EQ("view", Text(other));
}

TEST(MemoryFile, PooledStringsAndHostileCounts)
{
    DynamicBuffer buffer;
    buffer.Write32(5u);
    buffer.Write("name!", 5);
    buffer.Write32(0x40000004u);
    buffer.Write("h\0i\0", 4);
    buffer.Write32(100u);
    buffer.Write("shortab", 7);
    MemoryFile memory(buffer.GetData(), static_cast<unsigned>(buffer.GetLength()));
    Kiv::PString name;
    EXPECT_TRUE(memory.Read(name, false));
    EXPECT_EQ(Kiv::PString("name!"), name);
    EXPECT_TRUE(memory.Read(name, true));
    EXPECT_EQ(Kiv::PString("hi"), name);
    // Characters that do not remain: the empty name, the cursor just after the count word.
    EXPECT_FALSE(memory.Read(name));
    EXPECT_FALSE(name.IsNull());
    EXPECT_EQ(0u, name.Length());
    EXPECT_EQ(21u, memory.Tell());

    // Counts far beyond the data: the reader stays inside the block.
    for (uint32_t count : {0x7FFFFFFFu, 0xFFFFFFFFu, 20u})
    {
        Bytes bytes(12, 'q');
        memcpy(bytes.data(), &count, 4);
        MemoryFile hostile(bytes.data(), static_cast<unsigned>(bytes.size()));
        EXPECT_FALSE(hostile.Read(name));
        EXPECT_EQ(4u, hostile.Tell());
    }
}

TEST(MemoryFile, LoadsFromFiles)
{
    TempDir dir;
    const std::string name = dir / "data.bin";
    WriteBytes(name, {'0', '1', '2', '3', '4', '5', '6', '7'});
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_READ));
    file.SeekSet(2);
    MemoryFile rest(file);
    EXPECT_EQ("234567", Text(rest));
    EXPECT_STREQ(file.Name(), rest.Name());
    // A size past the end loads what is there; nothing left loads nothing.
    file.SeekSet(5);
    MemoryFile tail(file, 0x7FFFFFFFu);
    EXPECT_EQ("567", Text(tail));
    EXPECT_FALSE(tail.Open(file, 4u));
    EXPECT_FALSE(tail.IsOpen());
    file.Close();
    EXPECT_EQ("012", Text(MemoryFile(name.c_str(), 3)));
    EXPECT_FALSE(MemoryFile((dir / "missing.bin").c_str()).IsOpen());

    // A compressed file whose header claims gigabytes loads what it really holds.
    const std::string packed = dir / "packed.cfil";
    const std::string text(20000, 'q');
    ASSERT_EQ(File::RES_OK, file.Open(packed.c_str(), File::MODE_WRITE_COMPRESSED | File::MODE_CREATE));
    file.Write(text.data(), static_cast<unsigned long>(text.size()), 1);
    file.Close();
    Bytes stored = ReadBytes(packed);
    ASSERT_EQ("CFIL", std::string(stored.begin(), stored.begin() + 4));
    stored[11] = 0xC0;
    WriteBytes(packed, stored);
    EXPECT_EQ(text, Text(MemoryFile(packed.c_str())));
}

TEST(MemoryFile, LoadsUtf16TextFromFiles)
{
    const std::string golden = TestSupport::DataFile("Utf16Lines.txt");
    EXPECT_EQ("First line\r\nsecond\n", LoadText(golden, 0));

    // Without a mark, encoding 0 is 8-bit and loads the bytes from the start; encoding 2 converts.
    TempDir dir;
    WriteBytes(dir / "bare.txt", Utf16(u"one\ntwo", false));
    EXPECT_EQ(14u, LoadText(dir / "bare.txt", 0).size());
    EXPECT_EQ("one\ntwo", LoadText(dir / "bare.txt", 2));
    WriteBytes(dir / "mark.txt", {0xFF, 0xFE});
    EXPECT_EQ("(not open)", LoadText(dir / "mark.txt", 0));
    // Characters that take more bytes as 8-bit text than as UTF-16 are not cut.
    WriteBytes(dir / "wider.txt", Utf16(u"\u20ac\u20ac\u20ac\n\u20ac", true));
    if (!LocaleConvertsUtf8())
        return;
    EXPECT_EQ("\xE2\x82\xAC\xE2\x82\xAC\xE2\x82\xAC\n\xE2\x82\xAC", LoadText(dir / "wider.txt", 0));
}

TEST(DynamicBuffer, GrowsInStepsOfTheGranularity)
{
    DynamicBuffer buffer;
    EXPECT_EQ(1u, buffer.Write("x", 1));
    EXPECT_EQ(512u, buffer.GetCapacity());
    DynamicBuffer larger;
    const Bytes bytes(513, 0xAB);
    EXPECT_EQ(513u, larger.Write(bytes.data(), 513, 1));
    EXPECT_EQ(1024u, larger.GetCapacity());
    // Growth keeps what was written; the item count is answered.
    EXPECT_EQ(2u, larger.Write("abcdef", 2, 3));
    Bytes expected = bytes;
    expected.insert(expected.end(), {'a', 'b', 'c', 'd', 'e', 'f'});
    EXPECT_EQ(expected, Contents(larger));

    EXPECT_EQ(512u, DynamicBuffer(10, 0).GetGranularity());
    DynamicBuffer steps(0, 100);
    steps.Write(bytes.data(), 250, 1);
    EXPECT_EQ(300u, steps.GetCapacity());
    steps.Seek(300);
    EXPECT_TRUE(steps.AddLength(1));
    EXPECT_EQ(400u, steps.GetCapacity());
    // Sizes that overflow, and nothing to write, change nothing.
    EXPECT_FALSE(steps.AddLength(0xFFFFFFFFul));
    EXPECT_EQ(0u, steps.Write(bytes.data(), 0x10000, 0x10000));
    EXPECT_EQ(0u, steps.Write(nullptr, 1, 1));
    EXPECT_EQ(400u, steps.GetCapacity());
}

TEST(DynamicBuffer, ReadOnlyDataIsNeverChanged)
{
    unsigned char data[4] = {1, 2, 3, 4};
    DynamicBuffer view(data, 4, true);
    EXPECT_EQ(0u, view.Write("zz", 2, 1));
    EXPECT_FALSE(view.Write32(7u));
    EXPECT_FALSE(view.AddLength(1));
    EXPECT_EQ(0u, view.GetPosition());
    EXPECT_EQ(1, data[0]);
    unsigned int value = 0;
    EXPECT_TRUE(view.Read32(value));
    EXPECT_EQ(0x04030201u, value);

    // Not read-only: the data are copied, and the caller's block is never freed or changed.
    DynamicBuffer owned(data, 4, false);
    EXPECT_NE(data, owned.GetData());
    owned.Write("W", 1);
    EXPECT_EQ(1, data[0]);
    owned.SetData(owned.GetData(), 2, false);
    EXPECT_EQ((Bytes{'W', 2}), Contents(owned));
    owned.SetData(data, 0, false);
    EXPECT_EQ(nullptr, owned.GetData());
    EXPECT_EQ(1u, owned.Write("q", 1));
}

TEST(DynamicBuffer, PositionLengthAndReads)
{
    DynamicBuffer buffer(0, 16);
    buffer.Write("0123456789", 10, 1);
    // Seek is bounded by the capacity, not the length.
    EXPECT_TRUE(buffer.Seek(14));
    EXPECT_FALSE(buffer.Seek(17));
    EXPECT_EQ(16u, buffer.GetPosition());
    char out[16] = {};
    EXPECT_EQ(0u, buffer.Read(out, 4, 1));
    buffer.Seek(7);
    // Reads take what remains before the length.
    EXPECT_EQ(3u, buffer.Read(out, 2, 4));
    EXPECT_STREQ("789", out);
    EXPECT_EQ(static_cast<char *>(buffer.GetData()) + 10, buffer.GetCurrentData());
    EXPECT_TRUE(buffer.SetSize(12));
    EXPECT_FALSE(buffer.SetSize(40));
    EXPECT_EQ(16u, buffer.GetLength());
    buffer.Reset();
    EXPECT_EQ(0u, buffer.GetLength());
    EXPECT_EQ(16u, buffer.GetCapacity());
    short word = 0;
    EXPECT_FALSE(buffer.Read(word));
    // Writing back over the middle keeps the length.
    buffer.Write("abcdef", 6, 1);
    buffer.Seek(2);
    buffer.Write("XY", 2, 1);
    DynamicBuffer copy(buffer);
    buffer.Write("Z", 1, 1);
    EXPECT_EQ((Bytes{'a', 'b', 'X', 'Y', 'e', 'f'}), Contents(copy));
}
