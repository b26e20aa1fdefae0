#include "CompressedFile.h"
#include "File.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <process.h>
#define getpid _getpid
#else
#include <unistd.h>
#endif

using Kiv::File;
using TestSupport::DataFile;
using TestSupport::Listing;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;
namespace CompressedFile = Kiv::CompressedFile;

namespace
{
using Bytes = std::vector<unsigned char>;
using Names = std::multiset<std::string>;
const unsigned long compressedWrite = File::MODE_WRITE_COMPRESSED | File::MODE_CREATE;
const size_t chunk = 16384;

// Text, then noise that stays stored, then a binary, then text again: coded and stored chunks.
Bytes MixedData()
{
    Bytes data = ReadBytes("/usr/share/common-licenses/GPL-3");
    data.resize(40000);
    std::mt19937 random(5);
    for (int i = 0; i < 20000; ++i)
        data.push_back(static_cast<unsigned char>(random()));
    const Bytes program = ReadBytes("/bin/ls");
    data.insert(data.end(), program.begin(), program.begin() + 30000);
    data.insert(data.end(), data.begin(), data.begin() + 12345);
    return data;
}

// Writes through the compressed write mode in pieces of varying size.
void WriteCompressed(const std::string & name, const Bytes & data)
{
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), compressedWrite));
    size_t done = 0;
    for (size_t piece = 1; done < data.size(); piece = piece * 3 % 40009 + 1)
    {
        const size_t take = std::min(piece, data.size() - done);
        ASSERT_EQ(take, file.Write(data.data() + done, static_cast<unsigned long>(take), 1));
        done += take;
    }
    EXPECT_EQ(0u, file.Close());
}

Bytes ReadThrough(const std::string & name)
{
    File file;
    EXPECT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_READ));
    EXPECT_TRUE(file.IsCompressed());
    Bytes out;
    unsigned char piece[7000];
    for (unsigned long got; (got = file.Read(piece, sizeof(piece), 1)) > 0;)
        out.insert(out.end(), piece, piece + got);
    EXPECT_TRUE(file.Eof());
    return out;
}

// The physical offsets of the chunks' length words.
std::vector<size_t> ChunkOffsets(const Bytes & packed)
{
    std::vector<size_t> offsets;
    for (size_t at = 12; at + 2 <= packed.size(); at += 2 + ((packed[at] | packed[at + 1] << 8) & 0x7FFF))
        offsets.push_back(at);
    return offsets;
}

Bytes Header(uint32_t version, uint32_t size)
{
    Bytes header = {'C', 'F', 'I', 'L'};
    for (const uint32_t word : {version, size})
        for (int i = 0; i < 4; ++i)
            header.push_back(static_cast<unsigned char>(word >> (8 * i)));
    return header;
}

class MemoryStream : public Kiv::BinReader, public Kiv::BinWriter
{
public:
    Bytes bytes;
    size_t readAt = 0;
    size_t writeLimit = SIZE_MAX;

    unsigned int ReadRaw(void * data, unsigned int size) override
    {
        const size_t take = std::min<size_t>(size, bytes.size() - readAt);
        memcpy(data, bytes.data() + readAt, take);
        readAt += take;
        return static_cast<unsigned int>(take);
    }
    unsigned int WriteRaw(const void * data, unsigned int size) override
    {
        const size_t take = std::min<size_t>(size, writeLimit - bytes.size());
        bytes.insert(bytes.end(), static_cast<const unsigned char *>(data),
                     static_cast<const unsigned char *>(data) + take);
        return static_cast<unsigned int>(take);
    }
};

// Runs with the current directory in a scratch folder, where the write cycle makes its temporaries.
class InFolder
{
public:
    explicit InFolder(const std::string & folder)
    {
        File::GetCwd(previous);
        EXPECT_TRUE(File::Cd(folder.c_str()));
    }
    ~InFolder() { File::Cd(previous); }

private:
    File::Path previous;
};

// Writes `data` compressed as `name` in the folder, with the temporaries made there too.
std::string PackedFile(const TempDir & dir, const char * name, const Bytes & data)
{
    InFolder inside(dir.Path());
    WriteCompressed(name, data);
    return dir / name;
}

} // namespace

TEST(CompressedFile, WriteCycleRoundTrips)
{
    TempDir dir;
    InFolder inside(dir.Path());

    WriteCompressed("empty", {});
    EXPECT_EQ(Header(257, 0), ReadBytes(dir / "empty"));
    EXPECT_TRUE(ReadThrough(dir / "empty").empty());

    const Bytes mixed = MixedData();
    // Data that begin with the magic itself are written and read back whole too.
    const Bytes magic = {'C', 'F', 'I', 'L', 1, 2, 3, 4, 5, 6, 7, 8, 9};
    const Bytes cases[] = {magic, Bytes(chunk, 'q'), Bytes(chunk + 1, 'r'), mixed};
    for (const Bytes & data : cases)
    {
        SCOPED_TRACE(data.size());
        WriteCompressed("data.bin", data);
        const Bytes packed = ReadBytes(dir / "data.bin");
        ASSERT_GE(packed.size(), 12u);
        EXPECT_EQ(Header(257, static_cast<uint32_t>(data.size())),
                  Bytes(packed.begin(), packed.begin() + 12));
        // Every chunk but the last stands for 16,384 bytes; the noise stays stored.
        EXPECT_EQ((data.size() + chunk - 1) / chunk, ChunkOffsets(packed).size());
        EXPECT_EQ(data, ReadThrough(dir / "data.bin"));
    }
    EXPECT_LT(ReadBytes(dir / "data.bin").size(), mixed.size() * 8 / 10);
    // The temporaries are gone and the file is no longer hidden or plain.
    EXPECT_EQ((Names{"data.bin", "empty"}), Listing(dir / "*"));
}

TEST(CompressedFile, AppendCompressesTheOldBytes)
{
    TempDir dir;
    InFolder inside(dir.Path());
    // Appending to a plain file compresses the old bytes with the new ones.
    File file;
    WriteBytes(dir / "log.txt", {'o', 'l', 'd'});
    ASSERT_EQ(File::RES_OK, file.Open("log.txt", File::MODE_WRITE_COMPRESSED | File::MODE_APPEND));
    EXPECT_EQ(3u, file.Tell());
    EXPECT_EQ(3u, file.Write("new", 3, 1));
    file.Close();
    EXPECT_EQ((Bytes{'o', 'l', 'd', 'n', 'e', 'w'}), ReadThrough(dir / "log.txt"));
    EXPECT_EQ((Names{"log.txt"}), Listing(dir / "*"));
}

TEST(CompressedFile, SeeksAgreeWithAPlainCopy)
{
    TempDir dir;
    const Bytes data = MixedData();
    const std::string name = PackedFile(dir, "mixed", data);
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(name.c_str(), File::MODE_READ));
    const long size = static_cast<long>(data.size());
    std::mt19937 random(9);
    std::vector<long> targets;
    for (long boundary = 0; boundary <= size; boundary += static_cast<long>(chunk))
        for (long near : {-2L, -1L, 0L, 1L})
            if (boundary + near >= 0 && boundary + near < size)
                targets.push_back(boundary + near);
    for (int i = 0; i < 300; ++i)
        targets.push_back(static_cast<long>(random() % data.size()));
    std::shuffle(targets.begin(), targets.end(), random);
    Bytes piece(40000);
    for (size_t i = 0; i < targets.size(); ++i)
    {
        const long target = targets[i];
        SCOPED_TRACE(target);
        const unsigned long at = i % 3 == 0   ? file.SeekSet(target)
                                 : i % 3 == 1 ? file.SeekCur(target - static_cast<long>(file.Tell()))
                                              : file.SeekEnd(size - target);
        ASSERT_EQ(static_cast<unsigned long>(target), at);
        const size_t wanted = i % 5 == 0 ? random() % 40000 : random() % 64 + 1;
        const size_t expected = std::min(wanted, data.size() - static_cast<size_t>(target));
        ASSERT_EQ(expected, file.Read(piece.data(), static_cast<unsigned long>(wanted), 1));
        ASSERT_EQ(0, memcmp(piece.data(), data.data() + target, expected));
        ASSERT_EQ(static_cast<unsigned long>(target) + expected, file.Tell());
    }
    EXPECT_EQ(static_cast<unsigned long>(size + 100), file.SeekSet(size + 100));
    EXPECT_EQ(0u, file.Read(piece.data(), 10, 1));
    EXPECT_TRUE(file.Eof());
}

TEST(CompressedFile, CorruptDataEndsCleanly)
{
    TempDir dir;
    const Bytes data = MixedData();
    const std::string good = PackedFile(dir, "good", data);
    const Bytes packed = ReadBytes(good);
    const std::vector<size_t> offsets = ChunkOffsets(packed);
    ASSERT_EQ(7u, offsets.size());
    const std::string bad = dir / "bad";

    // Length words past the end, or longer than a chunk, stored or coded.
    for (const unsigned word : {0x7FFFu, 0xC001u})
    {
        Bytes broken = packed;
        broken[offsets[2]] = static_cast<unsigned char>(word);
        broken[offsets[2] + 1] = static_cast<unsigned char>(word >> 8);
        WriteBytes(bad, broken);
        EXPECT_EQ(Bytes(data.begin(), data.begin() + 2 * chunk), ReadThrough(bad)) << word;
    }
    // A coded chunk that expands past 16,384 bytes: code 64 stands for 2^15 bytes.
    const Bytes doubling = TestSupport::DoublingBlock(64);
    Bytes growing = Header(257, 100000);
    growing.insert(growing.end(), {static_cast<unsigned char>(doubling.size()),
                                   static_cast<unsigned char>(doubling.size() >> 8)});
    growing.insert(growing.end(), doubling.begin(), doubling.end());
    WriteBytes(bad, growing);
    EXPECT_TRUE(ReadThrough(bad).empty());

    // An older version takes its size from the chunks, whatever the header says.
    Bytes promising = packed;
    promising[8] = promising[9] = promising[10] = 0xFF;
    promising[4] = 0;
    promising[5] = 1;
    WriteBytes(bad, promising);
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(bad.c_str(), File::MODE_READ));
    EXPECT_EQ(data.size(), file.Size());
}

TEST(CompressedFile, GoldenFileOnEveryTarget)
{
    TempDir dir;
    InFolder inside(dir.Path());
    const Bytes input = ReadBytes(DataFile("Compressed.in"));
    const Bytes golden = ReadBytes(DataFile("Compressed.cfil"));
    EXPECT_EQ(input, ReadThrough(DataFile("Compressed.cfil")));
    WriteCompressed("again", input);
    EXPECT_EQ(golden, ReadBytes(dir / "again"));

    // The same form written from any reader to any writer; a short write answers false.
    MemoryStream stream;
    stream.bytes = input;
    MemoryStream target;
    EXPECT_TRUE(CompressedFile::WriteCompressedForm(stream, static_cast<uint32_t>(input.size()), target));
    EXPECT_EQ(golden, target.bytes);
    stream.readAt = 0;
    MemoryStream shortTarget;
    shortTarget.writeLimit = 20000;
    EXPECT_FALSE(
        CompressedFile::WriteCompressedForm(stream, static_cast<uint32_t>(input.size()), shortTarget));
}

TEST(CompressedFile, TemporaryNamesCountUp)
{
    const std::string first = CompressedFile::NextTemporaryName().Text();
    const std::string second = CompressedFile::NextTemporaryName("some/folder").Text();
    unsigned process = 0;
    unsigned count = 0;
    ASSERT_EQ(2, sscanf(first.c_str(), "%8X.T%8X", &process, &count));
    EXPECT_EQ(static_cast<unsigned>(getpid()), process);
    char expected[64];
    snprintf(expected, sizeof(expected), "some/folder/%08X.T%08X", process, count + 1);
    EXPECT_EQ(expected, second);
}
