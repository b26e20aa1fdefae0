#include "File.h"
#include "PString.h"
#include "String.h"
#include "TestSupport.h"
#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <new>
#include <string>
#include <vector>

#if !defined(_WIN32)
#include <csignal>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

using Kiv::File;
using TestSupport::FileFailure;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteText;

namespace
{
const unsigned long readMode = File::MODE_READ;
const unsigned long writeMode = File::MODE_WRITE | File::MODE_CREATE;
const unsigned long updateMode = File::MODE_WRITE | File::MODE_READ;

std::vector<unsigned char> Bytes(const std::string & text)
{
    return {text.begin(), text.end()};
}

std::vector<unsigned char> Pattern(size_t length)
{
    std::vector<unsigned char> bytes(length);
    for (size_t i = 0; i < length; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7 + i / 251);
    return bytes;
}
template <typename Value>
Value ReadBack(File & file)
{
    Value value{};
    EXPECT_TRUE(file.Read(value));
    return value;
}
} // namespace

TEST(File, ResultTableKeepsItsRows)
{
    File::Result result = File::RES_FILEALREADYEXISTS;
    EXPECT_STREQ("RES_FILEALREADYEXISTS", result.Identifier());
    EXPECT_STREQ("File already existsRES_READONLY", result.Message());
    result = File::RES_READONLY;
    EXPECT_STREQ("File is read-only", result.Identifier());
    EXPECT_EQ(nullptr, result.Message());
    EXPECT_STREQ("Unknown file error", File::Result(File::RES_UNKNOWN).Message());
    EXPECT_EQ(nullptr, File::results[9].identifier);
    EXPECT_EQ(nullptr, File::Result(File::RES_OK).Row());
}

TEST(File, OpenResults)
{
    TempDir dir;
    const std::string name = dir / "a.bin";
    File file;
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(name.c_str(), readMode));
    EXPECT_EQ(File::RES_MODENOTSUPPORTED, file.Open(name.c_str(), writeMode | File::MODE_UNSUPPORTED));
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode));
    EXPECT_EQ(File::RES_ALREADYOPEN, file.Open((dir / "b.bin").c_str(), writeMode));
    EXPECT_STREQ(name.c_str(), file.Name());
    EXPECT_EQ(3u, file.Write("abc", 3, 1));
    file.Close();
    EXPECT_EQ(0u, file.Close());

    EXPECT_EQ(File::RES_FILEALREADYEXISTS, file.Open(name.c_str(), File::MODE_WRITE | File::MODE_CREATE_NEW));
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_WRITE | File::MODE_APPEND));
    EXPECT_EQ(3u, file.Tell());
    file.Write("de", 2, 1);
    file.Close();
    EXPECT_EQ(Bytes("abcde"), ReadBytes(name));

    // A name longer than a path holds is refused before it reaches the system.
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open((dir / std::string(400, 'x')).c_str(), writeMode));
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(nullptr, readMode));

    // Short files are plain; a "CFIL" header is read compressed and never written.
    WriteText(name, "CFIL1");
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    char text[8] = {};
    EXPECT_EQ(5u, file.Read(text, 7, 1));
    EXPECT_STREQ("CFIL1", text);
    EXPECT_FALSE(file.IsCompressed());
    file.Close();
    WriteText(name, std::string("CFIL\1\1\0\0\0\0\0\0", 12));
    EXPECT_EQ(File::RES_CANTWRITECOMPRESSED, file.Open(name.c_str(), updateMode));
    EXPECT_FALSE(file.IsOpen());
}

TEST(File, TransfersThroughAndAroundTheBuffer)
{
    TempDir dir;
    const std::string name = dir / "data.bin";
    const std::vector<unsigned char> data = Pattern(3 * File::BUFFER_SIZE + 1234);
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode));
    // Small writes fill the buffer, a large one bypasses it.
    EXPECT_EQ(100u, file.Write(data.data(), 100, 1));
    EXPECT_EQ(10u, file.Write(data.data() + 100, 10, 1000));
    EXPECT_EQ(data.size() - 10100, file.Write(data.data() + 10100, data.size() - 10100, 1));
    EXPECT_EQ(data.size(), file.Size());
    file.Close();
    EXPECT_EQ(data, ReadBytes(name));

    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    std::vector<unsigned char> back(data.size() + 10);
    EXPECT_EQ(7u, file.Read(back.data(), 7, 1));
    EXPECT_EQ(2u, file.Read(back.data() + 7, 2, File::BUFFER_SIZE));
    const unsigned long rest = data.size() - 7 - 2 * File::BUFFER_SIZE;
    EXPECT_EQ(rest, file.Read(back.data() + 7 + 2 * File::BUFFER_SIZE, rest + 10, 1));
    back.resize(data.size());
    EXPECT_EQ(data, back);
    EXPECT_TRUE(file.Eof());
    file.Close();

    // Writing into the middle of a file that is also read keeps both views consistent.
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), updateMode));
    unsigned char byte = 0;
    EXPECT_TRUE(file.Read(byte));
    EXPECT_EQ(data[0], byte);
    file.SeekSet(5000);
    EXPECT_TRUE(file.Write(static_cast<unsigned char>(0xAB)));
    EXPECT_TRUE(file.Read(byte));
    EXPECT_EQ(data[5001], byte);
    file.SeekSet(5000);
    EXPECT_TRUE(file.Read(byte));
    EXPECT_EQ(0xAB, byte);
    file.Commit();
    file.Close();
    EXPECT_EQ(0xAB, ReadBytes(name)[5000]);
}

TEST(File, SeekOrigins)
{
    TempDir dir;
    const std::string name = dir / "seek.bin";
    TestSupport::WriteBytes(name, Pattern(100));
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(90u, file.SeekEnd(10));
    unsigned char byte = 0;
    EXPECT_EQ(0xFFFFFFFFu, file.Seek(5, static_cast<File::FileSeek>(3)));
    EXPECT_EQ(90u, file.Tell());
    EXPECT_EQ(200u, file.SeekSet(200));
    EXPECT_EQ(0u, file.Read(&byte, 1, 1));
    // A target before the start is a position far past the end: nothing is read there.
    EXPECT_EQ(0xFFFFFFFFu, file.SeekSet(-1));
    EXPECT_EQ(0u, file.Read(&byte, 1, 1));
    EXPECT_TRUE(file.Eof());
    EXPECT_EQ(0xFFFFFFFFu - 1, file.SeekEnd(102));
    std::vector<unsigned char> big(3 * File::BUFFER_SIZE);
    EXPECT_EQ(0u, file.Read(big.data(), 1, big.size()));
    char line[16] = "untouched";
    EXPECT_EQ(0u, file.ReadLine(line, sizeof(line)));
    EXPECT_STREQ("", line);
    EXPECT_EQ(0xFFFFFFFFu - 10, file.SeekCur(-9));
    EXPECT_EQ(5u, file.SeekCur(16));
    EXPECT_TRUE(file.Read(byte));
    EXPECT_EQ(Pattern(100)[5], byte);
}

TEST(File, MisuseThrows)
{
    TempDir dir;
    const std::string name = dir / "misuse.bin";
    WriteText(name, "abc");
    File file;
    char data[8];
    const auto read = [&] { file.Read(data, 1, 1); };
    const auto write = [&] { file.Write(data, 1, 1); };
    EXPECT_EQ("Corestone/File: Read() File is not open", FileFailure(read));
    EXPECT_EQ("Corestone/File: Write() File not open", FileFailure(write));
    EXPECT_EQ("Corestone/File: Size() failed to get file length", FileFailure([&] { file.Size(); }));
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ("Corestone/File: Write() File not open for writing", FileFailure(write));
    EXPECT_EQ("Corestone/File: SafeRead(buffer,2,2) failed to read all data",
              FileFailure([&] { file.SafeRead(data, 2, 2); }));
    file.Close();
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_WRITE));
    EXPECT_EQ("Corestone/File: Read() File not open for reading", FileFailure(read));
    file.Close();
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_WRITE_COMPRESSED));
    EXPECT_EQ("Corestone/File: Seek() Can't seek writing compressed file",
              FileFailure([&] { file.SeekSet(0); }));
}

TEST(File, ReadLineEightBit)
{
    TempDir dir;
    const std::string name = dir / "lines.txt";
    WriteText(name, "first\r\nsecond line is long\nthird\n\nlast");
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    char line[64];
    EXPECT_EQ(0u, file.ReadLine(line, 1));
    // Each line with the length it is read with: cut to length - 2, the rest of the line dropped.
    const struct
    {
        unsigned long length;
        const char * text;
    } lines[] = {{64, "first\r\n"}, {8, "second"}, {64, "third\n"}, {64, "\n"}, {64, "last"}, {64, ""}};
    for (const auto & expected : lines)
    {
        EXPECT_EQ(strlen(expected.text), file.ReadLine(line, expected.length));
        EXPECT_STREQ(expected.text, line);
    }
    file.Close();

    // A line longer than the buffer, across its refills.
    WriteText(name, std::string(50000, 'b') + "\nend\n");
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    std::vector<char> longLine(60000);
    EXPECT_EQ(50001u, file.ReadLine(longLine.data(), 60000));
    EXPECT_EQ(4u, file.ReadLine(longLine.data(), 60000));
}

TEST(File, Utf16LinesMatchGoldenBytes)
{
    TempDir dir;
    const std::string name = dir / "utf16.txt";
    const std::string golden = TestSupport::DataFile("Utf16Lines.txt");
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode, File::ENCODING_UTF16));
    EXPECT_EQ(File::ENCODING_UTF16, file.GetEncoding());
    const unsigned char mark[] = {0xFF, 0xFE};
    file.Write(mark, 1, 2);
    EXPECT_EQ(0u, file.WriteLine(""));
    EXPECT_EQ(24u, file.WriteLine("First line\r\n"));
    EXPECT_EQ(14u, file.WriteLine("second\n"));
    EXPECT_EQ(2u, file.WriteLine("ab", File::ENCODING_ANSI));
    file.Close();
    const std::vector<unsigned char> expected = ReadBytes(golden);
    std::vector<unsigned char> written = ReadBytes(name);
    ASSERT_EQ(written.size(), expected.size() + 2);
    written.resize(expected.size());
    EXPECT_EQ(expected, written);

    ASSERT_EQ(File::RES_OK, file.Open(golden.c_str(), readMode));
    EXPECT_EQ(File::ENCODING_UTF16, file.DetectEncoding());
    EXPECT_EQ(2u, file.Tell());
    char line[64];
    EXPECT_EQ(12u, file.ReadLine(line, sizeof(line)));
    EXPECT_STREQ("First line\r\n", line);
    EXPECT_EQ(5u, file.ReadLine(line, 6));
    EXPECT_STREQ("secon", line);
    EXPECT_EQ(0u, file.ReadLine(line, sizeof(line)));
}

TEST(File, Utf16LinesOutsideAscii)
{
    // "é€" and a character beyond the 16-bit plane, as UTF-8 text.
    const char * text = "\xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80\n";
    wchar_t probe[8];
    if (mbstowcs(probe, "\xC3\xA9", 8) != 1)
        GTEST_SKIP() << "the current locale does not convert UTF-8";
    TempDir dir;
    const std::string name = dir / "wide.txt";
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode | File::MODE_READ, File::ENCODING_UTF16));
    EXPECT_EQ(10u, file.WriteLine(text));
    file.SeekSet(0);
    char line[32];
    EXPECT_EQ(strlen(text), file.ReadLine(line, sizeof(line)));
    EXPECT_STREQ(text, line);
    file.Close();
    const std::vector<unsigned char> units = {0xE9, 0x00, 0xAC, 0x20, 0x3D, 0xD8, 0x00, 0xDE, 0x0A, 0x00};
    EXPECT_EQ(units, ReadBytes(name));
}

// The caller's length bounds what is kept, but the temporary grows only with the line read.
TEST(File, Utf16LinesLongerThanTheTemporary)
{
    TempDir dir;
    const std::string name = dir / "long16.txt";
    const std::string text = std::string(5000, 'a') + "\n" + std::string(9000, 'c') + "\ndd\n";
    std::vector<unsigned char> units;
    for (const char c : text)
        units.insert(units.end(), {static_cast<unsigned char>(c), 0});
    TestSupport::WriteBytes(name, units);
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode, File::ENCODING_UTF16));
    std::vector<char> out(20000);
    // A length no buffer has: only the line itself is ever held.
    EXPECT_EQ(5001u, file.ReadLine(out.data(), ~0ul));
    EXPECT_TRUE(std::string(5000, 'a') + "\n" == out.data());
    // 9,001 units do not fit in 8,000 bytes: the line is cut at 4,000 units and dropped to its end.
    EXPECT_EQ(4000u, file.ReadLine(out.data(), 8000));
    EXPECT_TRUE(std::string(4000, 'c') == out.data());
    EXPECT_EQ(3u, file.ReadLine(out.data(), out.size()));
}

TEST(File, TypedValuesStringsAndBlocks)
{
    TempDir dir;
    const std::string name = dir / "typed.bin";
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode));
    EXPECT_TRUE(file.Write(static_cast<short>(-2)) && file.Write(-3L) && file.Write32(0x01020304u) &&
                file.Write(1.5f) && file.Write(Kiv::String("text")) && file.Write(Kiv::PString("name")) &&
                file.Write(Kiv::UnicodeString(L"wide")) && file.WriteBlock("BLK", "xyz", 3));
    file.Close();
    // A long is four bytes on disk on every target.
    const std::vector<unsigned char> bytes = ReadBytes(name);
    ASSERT_EQ(2u + 4 + 4 + 4 + 8 + 8 + 12 + 11, bytes.size());
    EXPECT_EQ(0xFD, bytes[2]);
    EXPECT_EQ(0xFF, bytes[5]);
    EXPECT_EQ(0x04, bytes[6]);

    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), readMode));
    EXPECT_EQ(-2, ReadBack<short>(file));
    EXPECT_EQ(-3L, ReadBack<long>(file));
    unsigned int u = 0;
    EXPECT_TRUE(file.Read32(u));
    EXPECT_EQ(0x01020304u, u);
    EXPECT_EQ(1.5f, ReadBack<float>(file));
    EXPECT_TRUE(Kiv::String("text") == ReadBack<Kiv::String>(file) &&
                Kiv::PString("name") == ReadBack<Kiv::PString>(file) &&
                Kiv::UnicodeString(L"wide") == ReadBack<Kiv::UnicodeString>(file));
    char block[3];
    EXPECT_FALSE(file.ReadBlock("OTH", block, 3));
    file.SeekCur(-8);
    EXPECT_TRUE(file.ReadBlock("BLK", block, 3));
    EXPECT_EQ(0, memcmp(block, "xyz", 3));
    short s = 0;
    EXPECT_FALSE(file.Read(s));
}

TEST(File, CallerBuffer)
{
    TempDir dir;
    const std::string name = dir / "stamp.bin";
    std::vector<unsigned char> own(File::BUFFER_SIZE);
    File file;
    file.SetBuffer(own.data());
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), writeMode));
    file.Write("hello", 5, 1);
    EXPECT_EQ(0, memcmp(own.data(), "hello", 5));
    EXPECT_EQ("Corestone/File: SetStamp() failure",
              FileFailure([&] { File::SetStamp(File::Time(), (dir / "missing").c_str()); }));
}

TEST(File, FileSystemOperations)
{
    TempDir dir;
    const std::string deep = dir / "one/two/three";
    EXPECT_TRUE(File::Md(deep.c_str()));
    EXPECT_EQ(File::RES_OK, File::Exists(deep.c_str()));
    const std::string name = deep + "/File.TXT";
    WriteText(name, "x");
    EXPECT_EQ(File::RES_OK, File::Exists(name.c_str()));
    EXPECT_EQ(File::RES_SUBSTNOTFOUND, File::Exists("nosuchsubst:file"));

    File::Path found;
    EXPECT_EQ(File::RES_OK, File::ExistsIgnoreCase((dir / "ONE/Two/three/file.txt").c_str(), found));
    EXPECT_STREQ(name.c_str(), found);

    const std::string other = deep + "/other.txt";
    WriteText(other, "y");
    EXPECT_FALSE(File::Rename(name.c_str(), other.c_str()));
    EXPECT_TRUE(File::Remove(name.c_str()));
    // Pruned read-only.
    EXPECT_TRUE(File::SetReadonly(other.c_str(), true));
    EXPECT_EQ(File::RES_READONLY, File::CheckWriteMode(other.c_str()));

    EXPECT_FALSE(File::Rd((dir / "one").c_str()));
    EXPECT_TRUE(File::Prune((dir / "one").c_str()));
    EXPECT_EQ(File::RES_FILENOTFOUND, File::Exists((dir / "one").c_str()));

    File::Path start;
    ASSERT_TRUE(File::GetCwd(start));
    ASSERT_TRUE(File::Cd(dir.Path().c_str()));
    WriteText("here.txt", "h");
    char full[File::MAX_PATH_LENGTH] = "./sub/../here.txt";
    EXPECT_TRUE(File::TrueName(full));
    char expected[File::MAX_PATH_LENGTH];
    strcpy(expected, (dir / "here.txt").c_str());
    EXPECT_TRUE(File::TrueName(expected));
    EXPECT_STREQ(expected, full);
    // A result past the bound leaves the name as it was, rather than naming a cut file.
    std::vector<char> tooLong(File::MAX_PATH_LENGTH);
    memset(tooLong.data(), 'n', tooLong.size() - 10);
    EXPECT_FALSE(File::TrueName(tooLong.data()));
    EXPECT_TRUE(std::string(tooLong.size() - 10, 'n') == tooLong.data());
    EXPECT_TRUE(File::Cd(start));
}

// A writer keeps everybody out; a reader keeps writers out and lets readers in.
TEST(FileSharing, WritersAloneReadersTogether)
{
    TempDir dir;
    const std::string name = dir / "shared.bin";
    WriteText(name, "keep");
    File writer;
    File reader;
    File second;
    ASSERT_EQ(File::RES_OK, writer.Open(name.c_str(), updateMode));
    EXPECT_EQ(File::RES_FILENOTFOUND, reader.Open(name.c_str(), readMode));
    EXPECT_EQ(File::RES_FILENOTFOUND, second.Open(name.c_str(), writeMode));
    writer.Close();
    ASSERT_EQ(File::RES_OK, reader.Open(name.c_str(), readMode));
    EXPECT_EQ(File::RES_OK, second.Open(name.c_str(), readMode));
    EXPECT_EQ(File::RES_FILENOTFOUND, writer.Open(name.c_str(), writeMode));
    reader.Close();
    second.Close();
    EXPECT_EQ(File::RES_OK, writer.Open(name.c_str(), updateMode));
}

#if !defined(_WIN32)
namespace
{
const rlim_t sizeLimit = 20000;

// What one way of writing saw in a process whose files may not grow past sizeLimit.
struct LimitedWrite
{
    unsigned long reported = 0; // bytes the writes reported as written
    bool threw = false;
    unsigned long told = 0; // Tell() after the writes
    unsigned long closed = 0;
};

using Writes = std::function<void(File &, unsigned long & reported)>;

// Runs `writes` on a new file in a child process; answers what the child saw.
LimitedWrite UnderSizeLimit(const std::string & name, const Writes & writes)
{
    void * shared =
        mmap(nullptr, sizeof(LimitedWrite), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    auto & seen = *new (shared) LimitedWrite;
    const pid_t child = fork();
    if (child == 0)
    {
        const rlimit limit{sizeLimit, sizeLimit};
        setrlimit(RLIMIT_FSIZE, &limit);
        signal(SIGXFSZ, SIG_IGN);
        File file;
        if (file.Open(name.c_str(), writeMode) == File::RES_OK)
        {
            try
            {
                writes(file, seen.reported);
            }
            catch (const Kiv::FileEx &)
            {
                seen.threw = true;
            }
            seen.told = file.Tell();
            seen.closed = file.Close();
        }
        _exit(0);
    }
    int status = 0;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    const LimitedWrite result = seen;
    munmap(shared, sizeof(LimitedWrite));
    return result;
}

} // namespace

// A file that cannot grow (a full disk, a size limit) loses what the buffer held: the write that
// meets the limit is short, the file's position and size count only what reached the disk, and
// Close reports the loss. Each way of writing is tried in a child process under the limit.
TEST(FileLimits, FailedWritesAreNeverCountedAsWritten)
{
    TempDir dir;
    const std::vector<unsigned char> data = Pattern(3 * File::BUFFER_SIZE);
    const std::pair<std::string, Writes> ways[] = {
        {"safe",
         [&](File & file, unsigned long & reported)
         {
             for (size_t at = 0; at + 128 <= data.size(); at += 128, reported += 128)
                 file.SafeWrite(data.data() + at, 1, 128);
         }},
        {"direct",
         [&](File & file, unsigned long & reported) { reported = file.Write(data.data(), data.size(), 1); }},
        {"close",
         [&](File & file, unsigned long & reported)
         {
             file.SeekSet(18000);
             reported = file.Write(data.data(), 5000, 1);
         }},
    };
    for (const auto & way : ways)
    {
        SCOPED_TRACE(way.first);
        const LimitedWrite seen = UnderSizeLimit(dir / way.first, way.second);
        const std::vector<unsigned char> stored = ReadBytes(dir / way.first);
        EXPECT_EQ(sizeLimit, stored.size());
        // Closing is the first to find out when the buffer held the last bytes.
        EXPECT_EQ(way.first == "close" ? 23000 : stored.size(), seen.told);
        EXPECT_EQ(File::RES_UNKNOWN, seen.closed);
        // Only what the buffer held when the limit was met was reported and lost.
        EXPECT_LT(seen.reported, stored.size() + File::BUFFER_SIZE);
        EXPECT_EQ(way.first == "safe", seen.threw);
        EXPECT_TRUE(way.first == "close" || std::equal(stored.begin(), stored.end(), data.begin()));
    }
}
#endif
