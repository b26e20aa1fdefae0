#include "KIRFFile.h"
#include "PString.h"
#include "String.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

using Kiv::KIRFFile;
using Kiv::KIRFWriteBlock;
using Kiv::KIRFWriteHeader;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;

namespace
{
using Bytes = std::vector<unsigned char>;

const unsigned long writeMode = Kiv::File::MODE_WRITE | Kiv::File::MODE_CREATE;
const unsigned long readMode = Kiv::File::MODE_READ;

constexpr unsigned long Id(const char (&name)[5])
{
    return static_cast<unsigned char>(name[0]) | static_cast<unsigned char>(name[1]) << 8 |
           static_cast<unsigned char>(name[2]) << 16 | static_cast<unsigned long>(name[3]) << 24;
}

// A file's bytes as text and little-endian 32-bit words.
struct Field
{
    template <size_t N>
    Field(const char (&text)[N]) : text(text), size(N - 1)
    {
    }
    Field(uint32_t word) : word(word) {}
    const char * text = nullptr;
    size_t size = 0;
    uint32_t word = 0;
};

Bytes Layout(std::initializer_list<Field> fields)
{
    Bytes bytes;
    for (const Field & field : fields)
        if (field.text)
            bytes.insert(bytes.end(), field.text, field.text + field.size);
        else
            for (int i = 0; i < 4; ++i)
                bytes.push_back(static_cast<unsigned char>(field.word >> (8 * i)));
    return bytes;
}

// The sample file every target writes and reads: a mesh with a name, nested vertex blocks, a
// block of tags and a block written whole.
void WriteSample(KIRFFile & file)
{
    KIRFWriteHeader header(file, Id("MESH"));
    {
        KIRFWriteBlock name(file, Id("NAME"));
        file.WritePadded(Kiv::PString("box"));
    }
    {
        KIRFWriteBlock vertices(file, Id("VERT"));
        {
            KIRFWriteBlock positions(file, Id("POS "));
            for (float value : {1.0f, -2.5f, 0.125f})
                file.Write(value);
        }
        KIRFWriteBlock normals(file, Id("NRM "));
    }
    {
        KIRFWriteBlock tags(file, Id("TAGS"));
        file.WritePadded(Kiv::String(""));
        file.WritePadded(Kiv::PString());
        file.WritePadded(Kiv::String("a"));
        file.WritePadded(Kiv::PString("abcde"));
    }
    file.WriteBlock(Id("RAW "), 5, "12345");
}

template <typename Write>
std::string WriteToFile(const TempDir & dir, Write write)
{
    const std::string name = dir / "sample.kirf";
    KIRFFile file;
    EXPECT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), writeMode));
    write(file);
    file.Close();
    return name;
}

} // namespace

TEST(KIRFFile, WritesHeadersBlocksAndPaddedStrings)
{
    TempDir dir;
    auto write = [](KIRFFile & file)
    {
        {
            KIRFWriteHeader header(file, 0x01020304);
            // The scopes end in reverse order, so this block is inside the header.
            KIRFWriteBlock first(file, Id("ONE "));
        }
        {
            KIRFWriteBlock second(file, Id("TWO "));
            file.WritePadded(Kiv::String("abc"));
            file.WritePadded(Kiv::String(""));
            file.WritePadded(Kiv::PString());
        }
        EXPECT_EQ(48u, file.WriteBlock(Id("DATA"), 2, nullptr));
        file.Write("zz", 2, 1);
        file.WriteAt(48, 0xFFFFFFFEul);
        EXPECT_EQ(54u, file.Tell());
    };
    EXPECT_EQ(Layout({"KIRF", 12u, 0x01020304u, "ONE ", 0u, "TWO ", 16u, 4u, "abc\0", 0xFFFFFFFFu, 0u, "DATA",
                      0xFFFFFFFEu, "zz"}),
              ReadBytes(WriteToFile(dir, write)));

    // A header around two empty blocks counts the identifier and two block headers.
    auto empty = [](KIRFFile & file)
    {
        KIRFWriteHeader header(file, 7);
        KIRFWriteBlock(file, 1);
        KIRFWriteBlock(file, 2);
    };
    EXPECT_EQ(Layout({"KIRF", 20u, 7u, 1u, 0u, 2u, 0u}), ReadBytes(WriteToFile(dir, empty)));

    // A closed file has nowhere to write: the scope ends without throwing and the length stays 0.
    auto closed = [](KIRFFile & file)
    {
        KIRFWriteHeader header(file, 3);
        file.Write32(9u);
        file.Close();
    };
    EXPECT_EQ(Layout({"KIRF", 0u, 3u, 9u}), ReadBytes(WriteToFile(dir, closed)));
}

TEST(KIRFFile, GoldenSampleIsWrittenAndReadAlike)
{
    TempDir dir;
    const std::string golden = TestSupport::DataFile("Sample.kirf");
    EXPECT_EQ(ReadBytes(golden), ReadBytes(WriteToFile(dir, WriteSample)));

    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(golden.c_str(), readMode));
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadHeader(Id("MESH")).Value());

    unsigned int length = 0;
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("NAME"), length, nullptr).Value());
    EXPECT_EQ(8u, length);
    Kiv::PString name;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadPadded(name).Value());
    EXPECT_EQ(Kiv::PString("box"), name);

    // A nested block: the outer payload is read as blocks of its own.
    unsigned long id = 0;
    file.ReadBlockHeader(id, length);
    EXPECT_EQ(Id("VERT"), id);
    EXPECT_EQ(2 * 8u + 12, length);
    float values[3] = {};
    length = sizeof(values);
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("POS "), length, values).Value());
    EXPECT_EQ(-2.5f, values[1]);
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("NRM "), length, nullptr).Value());
    EXPECT_EQ(0u, length);

    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("TAGS"), length, nullptr).Value());
    Kiv::String tags[4] = {"x", "x"};
    for (Kiv::String & tag : tags)
        file.ReadPadded(tag);
    EXPECT_STREQ("", tags[0]);
    EXPECT_EQ(nullptr, static_cast<const char *>(tags[1]));
    EXPECT_STREQ("a", tags[2]);
    EXPECT_STREQ("abcde", tags[3]);

    char raw[8] = {};
    length = sizeof(raw);
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("RAW "), length, raw).Value());
    EXPECT_EQ(5u, length);
    EXPECT_STREQ("12345", raw);
    EXPECT_TRUE(file.Eof());
}

TEST(KIRFFile, ReadersAnswerCodesAndReportLengths)
{
    EXPECT_STREQ("Identifer not the same as the supplied id",
                 KIRFFile::Result(KIRFFile::RES_WRONGID).Message());
    EXPECT_STREQ("Not a KIRF file", KIRFFile::Result(KIRFFile::RES_NOTKIRF).Message());
    EXPECT_STREQ("Unknown Error", KIRFFile::results[0].message);
    TempDir dir;
    auto write = [](KIRFFile & file)
    {
        file.WriteHeader(Id("FILE"));
        file.WriteBlock(Id("BIG "), 10, "0123456789");
        file.WriteBlock(Id("NEXT"), 3, "abc");
    };
    const std::string name = WriteToFile(dir, write);
    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    unsigned int size = 99;
    // The size is stored before the identifier is checked.
    EXPECT_EQ(KIRFFile::RES_WRONGID, file.ReadHeader(Id("OTHR"), size).Value());
    EXPECT_EQ(0xFFFFFFFCu, size);
    file.SeekSet(0);
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadHeader(Id("FILE")).Value());

    // Another identifier: only the block header is consumed, and the length tells what to skip.
    unsigned int length = 4;
    char buffer[5] = {};
    EXPECT_EQ(KIRFFile::RES_WRONGID, file.ReadBlock(Id("NEXT"), length, buffer).Value());
    EXPECT_EQ(10u, length);
    EXPECT_EQ(20u, file.Tell());
    file.SeekSet(12);
    // A smaller buffer is filled, the rest of the payload skipped, the full length reported.
    length = 4;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("BIG "), length, buffer).Value());
    EXPECT_EQ(10u, length);
    EXPECT_STREQ("0123", buffer);
    EXPECT_EQ(30u, file.Tell());
    file.Close();

    // Another magic word.
    WriteBytes(name, Layout({"KIRX", 8u, 1u}));
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(KIRFFile::RES_NOTKIRF, file.ReadHeader(1).Value());
    file.Close();

    // Count 1 and count 0 read as the null string; count 2 is one character and three zeros.
    WriteBytes(name, Layout({1u, 2u, "Q\0\0\0", 0u}));
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    Kiv::PString one("x"), zero("x");
    Kiv::String two;
    file.ReadPadded(one);
    file.ReadPadded(two);
    file.ReadPadded(zero);
    EXPECT_TRUE(one.IsNull());
    EXPECT_STREQ("Q", two);
    EXPECT_TRUE(zero.IsNull());
    EXPECT_TRUE(file.Eof());
}

TEST(KIRFFile, HugeLengthsFailCleanly)
{
    TempDir dir;
    const std::string name = dir / "hostile.kirf";
    WriteBytes(name,
               Layout({"KIRF", 0xFFFFFFFFu, 1u, "BLK ", 0xFFFFFFF0u, "payload!", 0x7FFFFFFFu, "chars"}));
    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadHeader(1).Value());
    // The payload is read up to the caller's room and the skip stops at the end of the file.
    char buffer[4] = {};
    unsigned int length = sizeof(buffer);
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("BLK "), length, buffer).Value());
    EXPECT_EQ(0xFFFFFFF0u, length);
    EXPECT_EQ(0, memcmp(buffer, "payl", 4));
    EXPECT_EQ(file.Size(), file.Tell());

    // A padded count beyond the file fails, leaving a null string, without allocating for it.
    file.SeekSet(28);
    Kiv::PString pooled("was");
    EXPECT_EQ(KIRFFile::RES_UNKNOWN, file.ReadPadded(pooled).Value());
    EXPECT_TRUE(pooled.IsNull());
}
