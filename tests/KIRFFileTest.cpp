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

void Put32(Bytes & bytes, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<unsigned char>(value >> (8 * i)));
}

void Put(Bytes & bytes, const char * text)
{
    bytes.insert(bytes.end(), text, text + strlen(text));
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

std::string WriteToFile(const TempDir & dir, void (*write)(KIRFFile &))
{
    const std::string name = dir / "sample.kirf";
    KIRFFile file;
    EXPECT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), writeMode));
    write(file);
    file.Close();
    return name;
}
} // namespace

TEST(KIRFFile, ResultTable)
{
    KIRFFile::Result result(KIRFFile::RES_WRONGID);
    EXPECT_STREQ("Identifer not the same as the supplied id", result.Message());
    EXPECT_STREQ("Not a KIRF file", KIRFFile::Result(KIRFFile::RES_NOTKIRF).Message());
    EXPECT_STREQ("Unknown Error", KIRFFile::results[0].message);
    EXPECT_EQ(nullptr, KIRFFile::results[3].identifier);
    EXPECT_EQ(nullptr, KIRFFile::results[3].message);
    EXPECT_EQ(nullptr, KIRFFile::Result().Message());
}

TEST(KIRFFile, WritesHeadersBlocksAndPaddedStrings)
{
    TempDir dir;
    const std::string name = WriteToFile(dir,
                                         [](KIRFFile & file)
                                         {
                                             {
                                                 KIRFWriteHeader header(file, 0x01020304);
                                                 KIRFWriteBlock first(file, Id("ONE "));
                                                 // The scope ends in reverse order, so this block is inside
                                                 // the first.
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
                                         });
    Bytes expected;
    Put(expected, "KIRF");
    Put32(expected, 12);
    Put32(expected, 0x01020304);
    Put(expected, "ONE ");
    Put32(expected, 0);
    Put(expected, "TWO ");
    Put32(expected, 16);
    Put32(expected, 4);
    expected.insert(expected.end(), {'a', 'b', 'c', 0});
    Put32(expected, 0xFFFFFFFF);
    Put32(expected, 0);
    Put(expected, "DATA");
    Put32(expected, 0xFFFFFFFE);
    Put(expected, "zz");
    EXPECT_EQ(expected, ReadBytes(name));

    // A header around two empty blocks counts the identifier and two block headers.
    const std::string empty = WriteToFile(dir,
                                          [](KIRFFile & file)
                                          {
                                              KIRFWriteHeader header(file, 7);
                                              KIRFWriteBlock(file, 1);
                                              KIRFWriteBlock(file, 2);
                                          });
    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(empty.c_str(), readMode));
    unsigned int size = 0;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadHeader(7, size).Value());
    EXPECT_EQ(16u, size);
    EXPECT_EQ(28u, file.Size());
    file.SeekSet(4);
    unsigned int stored = 0;
    file.Read32(stored);
    EXPECT_EQ(20u, stored);
}

TEST(KIRFFile, GoldenSampleIsWrittenAndReadAlike)
{
    TempDir dir;
    const std::string golden = TestSupport::DataFile("Sample.kirf");
    EXPECT_EQ(ReadBytes(golden), ReadBytes(WriteToFile(dir, WriteSample)));

    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(golden.c_str(), readMode));
    unsigned int size = 0;
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadHeader(Id("MESH"), size).Value());
    EXPECT_EQ(file.Size() - 12, size);

    unsigned int length = 0;
    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("NAME"), length, nullptr).Value());
    EXPECT_EQ(8u, length);
    Kiv::PString name;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadPadded(name).Value());
    EXPECT_EQ(Kiv::PString("box"), name);

    // A nested block: the outer payload is walked as blocks of its own.
    unsigned long id = 0;
    file.ReadBlockHeader(id, length);
    EXPECT_EQ(Id("VERT"), id);
    const unsigned long end = file.Tell() + length;
    std::vector<unsigned long> inner;
    while (file.Tell() < end)
    {
        file.ReadBlockHeader(id, length);
        inner.push_back(id);
        if (id == Id("POS "))
        {
            float values[3] = {};
            EXPECT_EQ(12u, length);
            file.SafeRead(values, 3, sizeof(float));
            EXPECT_EQ(-2.5f, values[1]);
        }
        else
        {
            file.SeekCur(static_cast<long>(length));
        }
    }
    EXPECT_EQ((std::vector<unsigned long>{Id("POS "), Id("NRM ")}), inner);
    EXPECT_EQ(end, file.Tell());

    ASSERT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("TAGS"), length, nullptr).Value());
    Kiv::String empty("x"), null("x"), single, five;
    file.ReadPadded(empty);
    file.ReadPadded(null);
    file.ReadPadded(single);
    file.ReadPadded(five);
    EXPECT_STREQ("", empty);
    EXPECT_EQ(nullptr, static_cast<const char *>(null));
    EXPECT_STREQ("a", single);
    EXPECT_STREQ("abcde", five);

    char raw[8] = {};
    length = sizeof(raw);
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("RAW "), length, raw).Value());
    EXPECT_EQ(5u, length);
    EXPECT_STREQ("12345", raw);
    EXPECT_TRUE(file.Eof());
}

TEST(KIRFFile, ReadersAnswerCodesAndReportLengths)
{
    TempDir dir;
    const std::string name = WriteToFile(dir,
                                         [](KIRFFile & file)
                                         {
                                             file.WriteHeader(Id("FILE"));
                                             file.WriteBlock(Id("BIG "), 10, "0123456789");
                                             file.WriteBlock(Id("NEXT"), 3, "abc");
                                         });
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
    length = 0;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlock(Id("NEXT"), length, nullptr).Value());
    EXPECT_EQ(3u, length);
    EXPECT_EQ(38u, file.Tell());
    file.Close();

    WriteBytes(name, {'K', 'I', 'R', 'X', 8, 0, 0, 0, 1, 0, 0, 0});
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(KIRFFile::RES_NOTKIRF, file.ReadHeader(1).Value());
    file.Close();
    // Nothing to read: zero fields, and still no crash.
    WriteBytes(name, {});
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(KIRFFile::RES_NOTKIRF, file.ReadHeader(0).Value());
    unsigned long id = 5;
    length = 5;
    EXPECT_EQ(KIRFFile::RES_OK, file.ReadBlockHeader(id, length).Value());
    EXPECT_EQ(0u, id);
    EXPECT_EQ(0u, length);
}

TEST(KIRFFile, PaddedStringsOfEveryLengthRoundTrip)
{
    TempDir dir;
    const std::string name = WriteToFile(dir,
                                         [](KIRFFile & file)
                                         {
                                             for (unsigned n = 1; n <= 9; ++n)
                                                 EXPECT_TRUE(file.WritePadded(Kiv::String(
                                                     std::string(n, static_cast<char>('a' + n)).c_str())));
                                             file.Write32(1u);
                                             file.Write32(2u);
                                             file.Write("Q\0\0\0", 4, 1);
                                             file.Write32(0u);
                                         });
    EXPECT_EQ(8u * 4 + 12 * 4 + 16 + 16, ReadBytes(name).size());
    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), readMode));
    for (unsigned n = 1; n <= 9; ++n)
    {
        Kiv::PString text;
        EXPECT_EQ(KIRFFile::RES_OK, file.ReadPadded(text).Value());
        EXPECT_EQ(Kiv::PString(std::string(n, static_cast<char>('a' + n)).c_str()), text);
        EXPECT_EQ(0u, file.Tell() % 4);
    }
    // Count 1 and count 0 read as the null string; count 2 is one character and three zeros.
    Kiv::PString one("x"), zero("x");
    file.ReadPadded(one);
    EXPECT_TRUE(one.IsNull());
    Kiv::String two;
    file.ReadPadded(two);
    EXPECT_STREQ("Q", two);
    file.ReadPadded(zero);
    EXPECT_TRUE(zero.IsNull());
    EXPECT_TRUE(file.Eof());
}

TEST(KIRFFile, HugeLengthsFailCleanly)
{
    TempDir dir;
    const std::string name = dir / "hostile.kirf";
    Bytes bytes;
    Put(bytes, "KIRF");
    Put32(bytes, 0xFFFFFFFF);
    Put32(bytes, 1);
    Put(bytes, "BLK ");
    Put32(bytes, 0xFFFFFFF0);
    Put(bytes, "payload!");
    Put32(bytes, 0x7FFFFFFF);
    Put(bytes, "chars");
    WriteBytes(name, bytes);

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
    for (int form = 0; form < 2; ++form)
    {
        file.SeekSet(28);
        Kiv::PString pooled("was");
        Kiv::String text("was");
        const KIRFFile::Result result = form == 0 ? file.ReadPadded(pooled) : file.ReadPadded(text);
        EXPECT_EQ(KIRFFile::RES_UNKNOWN, result.Value());
        EXPECT_TRUE(form == 0 ? pooled.IsNull() : static_cast<const char *>(text) == nullptr);
    }
    file.Close();

    // The same through a compressed file whose header claims gigabytes: the count is checked
    // against the bytes that really come, not the size the header states.
    const std::string packed = dir / "packed.kirf";
    ASSERT_EQ(Kiv::File::RES_OK,
              file.Open(packed.c_str(), Kiv::File::MODE_WRITE_COMPRESSED | Kiv::File::MODE_CREATE));
    file.Write(bytes.data(), static_cast<unsigned long>(bytes.size()), 1);
    file.Close();
    Bytes stored = ReadBytes(packed);
    ASSERT_EQ("CFIL", std::string(stored.begin(), stored.begin() + 4));
    stored[11] = 0xC0;
    WriteBytes(packed, stored);
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(packed.c_str(), readMode));
    file.SeekSet(28);
    Kiv::String text;
    EXPECT_EQ(KIRFFile::RES_UNKNOWN, file.ReadPadded(text).Value());
    EXPECT_EQ(nullptr, static_cast<const char *>(text));
}

// A compressed write refuses seeks and a closed file has nowhere to write: the scopes end
// without throwing and the length stays 0.
TEST(KIRFFile, SizeScopesEndQuietlyWhereTheyCannotSeekBack)
{
    TempDir dir;
    Bytes expected;
    Put(expected, "KIRF");
    Put32(expected, 0);
    Put32(expected, 3);
    Put32(expected, 9);
    const std::string closed = dir / "closed.kirf";
    const std::string packed = dir / "packed.kirf";
    for (const std::string & name : {closed, packed})
    {
        KIRFFile file;
        const unsigned long mode =
            name == packed ? Kiv::File::MODE_WRITE_COMPRESSED | Kiv::File::MODE_CREATE : writeMode;
        ASSERT_EQ(Kiv::File::RES_OK, file.Open(name.c_str(), mode));
        KIRFWriteHeader header(file, 3);
        file.Write32(9u);
        if (name == closed)
            file.Close();
    }
    EXPECT_EQ(expected, ReadBytes(closed));
    KIRFFile file;
    ASSERT_EQ(Kiv::File::RES_OK, file.Open(packed.c_str(), readMode));
    EXPECT_TRUE(file.IsCompressed());
    Bytes read(expected.size() + 1);
    EXPECT_EQ(expected.size(), file.Read(read.data(), static_cast<unsigned long>(read.size()), 1));
    read.pop_back();
    EXPECT_EQ(expected, read);
}
