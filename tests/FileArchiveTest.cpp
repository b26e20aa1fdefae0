#include "File.h"
#include "FileSub.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

using Kiv::File;
using Kiv::FileSubArchive;
using Kiv::PString;
using TestSupport::FileFailure;
using TestSupport::Listing;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;
using Names = std::multiset<std::string>;

namespace
{
using Bytes = std::vector<unsigned char>;

uint32_t Get32(const Bytes & bytes, size_t at)
{
    return bytes[at] | bytes[at + 1] << 8 | bytes[at + 2] << 16 | static_cast<uint32_t>(bytes[at + 3]) << 24;
}

void Put32(Bytes & bytes, size_t at, uint32_t value)
{
    for (int i = 0; i < 4; ++i)
        bytes[at + i] = static_cast<unsigned char>(value >> (8 * i));
}

void Append32(Bytes & bytes, uint32_t value)
{
    bytes.resize(bytes.size() + 4);
    Put32(bytes, bytes.size() - 4, value);
}

std::string Id(const Bytes & bytes, size_t at)
{
    return std::string(bytes.begin() + static_cast<long>(at), bytes.begin() + static_cast<long>(at) + 4);
}

// An archive written independently of the library: the blocks, then an index of the live ones.
struct Stored
{
    std::string name;
    std::string data;
    bool removed = false;
    // The size a reader sees, when it is not the stored length.
    int64_t size = -1;
};

Bytes BuildArchive(const std::vector<Stored> & files, uint32_t version = 258)
{
    Bytes bytes;
    bytes.assign({'A', 'R', 'C', 'H', 'I', 'N', 'F', 'O'});
    Append32(bytes, 32);
    Append32(bytes, 0x41524330);
    Append32(bytes, version);
    bytes.resize(44);
    Bytes index;
    uint32_t count = 0;
    for (const Stored & file : files)
    {
        Bytes entry(288);
        memcpy(entry.data(), file.name.c_str(), file.name.size());
        Put32(entry, 260, static_cast<uint32_t>(file.size < 0 ? file.data.size() : file.size));
        bytes.insert(bytes.end(), {'F', 'I', 'L', static_cast<unsigned char>(file.removed ? '!' : 0)});
        Append32(bytes, static_cast<uint32_t>(288 + file.data.size()));
        bytes.insert(bytes.end(), entry.begin(), entry.end());
        if (!file.removed)
        {
            Append32(index, static_cast<uint32_t>(bytes.size()));
            Append32(index, static_cast<uint32_t>(file.data.size()));
            index.insert(index.end(), entry.begin(), entry.end());
            ++count;
        }
        bytes.insert(bytes.end(), file.data.begin(), file.data.end());
    }
    Put32(bytes, 20, count);
    Put32(bytes, 24, static_cast<uint32_t>(bytes.size()));
    bytes.insert(bytes.end(), {'I', 'D', 'X', ' '});
    Append32(bytes, count * 296);
    bytes.insert(bytes.end(), index.begin(), index.end());
    return bytes;
}

std::string Pattern(size_t length, unsigned seed)
{
    std::string text(length, 0);
    for (size_t i = 0; i < length; ++i)
        text[i] = static_cast<char>((i * 131 + seed * 7 + (i >> 8)) & 0xFF);
    return text;
}

// Substitutes an archive for one test and removes it, writing its index, when the test ends.
class Mount
{
public:
    Mount(const char * name, const std::string & path, bool writable = false) : name(name)
    {
        File::Subst(this->name, path.c_str(), writable);
    }
    ~Mount() { Close(); }
    Mount(const Mount &) = delete;
    Mount & operator=(const Mount &) = delete;

    void Close() { File::Subst(name, nullptr); }
    // The newest place, which the entry keeps alive.
    FileSubArchive & Archive() const
    {
        unsigned count = 0;
        Kiv::FileSub ** places = Kiv::FileSubstitute::Find(name)->TakePlaces(count);
        auto & archive = dynamic_cast<FileSubArchive &>(*places[0]);
        Kiv::FileSubstitute::ReleasePlaces(places, count);
        return archive;
    }

    PString name;
};

bool Put(const PString & subst, const char * name, const std::string & data,
         unsigned long mode = File::MODE_WRITE | File::MODE_CREATE)
{
    File file;
    if (file.Open(subst, name, mode) != File::RES_OK)
        return false;
    const bool written = file.Write(data.data(), static_cast<unsigned long>(data.size()), 1) == data.size();
    file.Close();
    return written;
}

// The whole stored file read back, or "<missing>".
std::string Get(const PString & subst, const char * name)
{
    File file;
    if (file.Open(subst, name, File::MODE_READ) != File::RES_OK)
        return "<missing>";
    std::string data(file.Size(), 0);
    const unsigned long got = file.Read(&data[0], static_cast<unsigned long>(data.size()), 1);
    data.resize(got);
    char extra;
    EXPECT_EQ(0u, file.Read(&extra, 1, 1)) << name << " reads past its end";
    return data;
}

} // namespace

TEST(FileArchive, NewArchiveLayoutAndIndex)
{
    TempDir dir;
    const std::string path = dir / "new.ark";
    Mount mount("aNew", path, true);
    const Bytes made = ReadBytes(path);
    const Bytes empty = BuildArchive({});
    // 44 bytes; the index offset is set when an index is written.
    Bytes header(empty.begin(), empty.begin() + 44);
    Put32(header, 24, 0);
    EXPECT_EQ(header, made);

    // Closed empty, it gains an empty index after the INFO block.
    mount.Close();
    EXPECT_EQ(empty, ReadBytes(path));

    // An index written twice stands at the same offset, and the file ends with it.
    Mount again("aNew", path, true);
    ASSERT_TRUE(Put(again.name, "one.txt", "one"));
    ASSERT_TRUE(Put(again.name, "two.txt", "two"));
    ASSERT_TRUE(again.Archive().WriteIndex());
    const uint32_t first = Get32(ReadBytes(path), 24);
    EXPECT_EQ(44u + 2 * 299, first);
    ASSERT_TRUE(File::Remove(again.name, "one.txt"));
    ASSERT_TRUE(again.Archive().WriteIndex());
    EXPECT_EQ(first, Get32(ReadBytes(path), 24));
    again.Close();
    const Bytes twice = ReadBytes(path);
    EXPECT_EQ(first, Get32(twice, 24));
    EXPECT_EQ(1u, Get32(twice, 20));
    EXPECT_EQ(first + 8u + 296u, twice.size());
}

TEST(FileArchive, VersionsAndSignatureChecked)
{
    TempDir dir;
    const std::vector<Stored> files = {{"a.txt", "alpha"}};
    for (uint32_t version : {256u, 257u, 258u, 259u})
    {
        const std::string path = dir / ("v" + std::to_string(version) + ".ark");
        WriteBytes(path, BuildArchive(files, version));
        Mount mount("aVersion", path);
        const bool accepted = version == 257 || version == 258;
        EXPECT_EQ(accepted, mount.Archive().IsValid()) << version;
        EXPECT_EQ(accepted ? "alpha" : "<missing>", Get(mount.name, "a.txt")) << version;
        EXPECT_EQ(version == 257 ? 257u : 0u, mount.Archive().StoredVersion());
    }
    // Files stored compressed in a version 257 archive carry only the "CFIL" magic; the entry
    // gives their size.
    WriteBytes(dir / "old.ark",
               BuildArchive({{"old.txt", std::string("CFIL\x05\x80hello", 11), false, 5}}, 257));
    {
        Mount old("aOld", dir / "old.ark", true);
        EXPECT_EQ("hello", Get(old.name, "old.txt"));
        // New files go in plain, the only form this version's readers take.
        ASSERT_TRUE(Put(old.name, "new.txt", "new text", File::MODE_WRITE_COMPRESSED | File::MODE_CREATE));
        EXPECT_EQ("new text", Get(old.name, "new.txt"));
    }
    const Bytes old = ReadBytes(dir / "old.ark");
    EXPECT_EQ("new text", std::string(old.begin() + 44 + 307 + 296, old.begin() + 44 + 307 + 304));
    EXPECT_EQ(
        "Corestone/FileSubArchive: Substitute() Open new archive failed",
        FileFailure([&] { File::Subst(PString("aCannot"), (dir / "no/such/folder.ark").c_str(), true); }));
}

TEST(FileArchive, WriteReadReopenAndList)
{
    TempDir dir;
    const std::string path = dir / "round.ark";
    const std::string big = Pattern(40000, 1);
    {
        Mount mount("aRound", path, true);
        ASSERT_TRUE(Put(mount.name, "Big.bin", big));
        ASSERT_TRUE(Put(mount.name, "empty.txt", ""));
        ASSERT_TRUE(Put(mount.name, "/Maps/Level1.map", "level one"));
        ASSERT_TRUE(Put(mount.name, "maps\\deep\\x.txt", "x"));
        ASSERT_TRUE(Put(mount.name, std::string(File::MAX_PATH_LENGTH - 5, 'n').c_str(), "unlisted"));
        // Found before the index exists, whatever the case and separators.
        EXPECT_EQ(big, Get(mount.name, "big.BIN"));
        EXPECT_EQ("level one", Get(mount.name, "\\MAPS\\level1.map"));
    }
    Mount mount("aRound", path);
    EXPECT_EQ(5u, mount.Archive().FileCount());
    EXPECT_EQ(big, Get(mount.name, "Big.bin"));
    EXPECT_EQ("x", Get(mount.name, "maps/deep/x.txt"));
    File::Path found;
    ASSERT_EQ(File::RES_OK, File::ExistsIgnoreCase("aRound:MAPS/level1.MAP", found));
    EXPECT_STREQ("aRound:/Maps/Level1.map", found.Text());
    // A name that fits the archive but not behind the substitution's prefix is not listed.
    EXPECT_EQ(Names({"Big.bin", "empty.txt", "Maps/"}), Listing("aRound:*"));
    EXPECT_EQ(Names({"Level1.map"}), Listing("aRound:maps/*.map"));
    EXPECT_EQ(Names({"aRound:maps/deep/x.txt"}), Listing("aRound:maps/deep/*", true));

    // A read-only archive takes no writes or removals.
    EXPECT_FALSE(Put(mount.name, "new.txt", "new"));
    EXPECT_FALSE(File::Remove(mount.name, "Big.bin"));
    EXPECT_EQ(0u, File::OpenCount());
}

TEST(FileArchive, ReplaceAppendAndRemove)
{
    TempDir dir;
    const std::string path = dir / "edit.ark";
    Mount mount("aEdit", path, true);
    ASSERT_TRUE(Put(mount.name, "a.txt", "first"));
    // Replacing marks the old block "FIL!" and appends the new one.
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(mount.name, "A.TXT", File::MODE_WRITE | File::MODE_CREATE));
    file.Write("second", 6, 1);
    file.Close();
    // Appending and opening keep the stored bytes.
    ASSERT_TRUE(Put(mount.name, "a.txt", "+more", File::MODE_WRITE | File::MODE_APPEND));
    EXPECT_EQ("second+more", Get(mount.name, "a.txt"));
    ASSERT_EQ(File::RES_OK, file.Open(mount.name, "a.txt", File::MODE_READ | File::MODE_WRITE));
    file.Write("SECOND", 6, 1);
    file.Close();
    EXPECT_EQ("SECOND+more", Get(mount.name, "a.txt"));

    ASSERT_TRUE(Put(mount.name, "b.txt", "bee"));
    EXPECT_TRUE(File::Remove(mount.name, "B.txt"));
    EXPECT_FALSE(File::Remove(mount.name, "b.txt"));
    EXPECT_EQ(File::RES_FILENOTFOUND, File::Exists(mount.name, "b.txt"));
    mount.Close();

    const Bytes bytes = ReadBytes(path);
    std::vector<std::string> markers;
    for (size_t at = 44; at < Get32(bytes, 24); at += 8 + Get32(bytes, at + 4))
        markers.push_back(Id(bytes, at));
    const std::vector<std::string> expected = {"FIL!", "FIL!", "FIL!", std::string("FIL\0", 4), "FIL!"};
    EXPECT_EQ(expected, markers);
    Mount reopened("aEdit", path);
    EXPECT_EQ("SECOND+more", Get(reopened.name, "a.txt"));
}

// Blocks appended by a writer that stopped before rewriting the index are still found, and a
// writable archive indexes them on close.
TEST(FileArchive, BlocksAfterTheIndex)
{
    TempDir dir;
    const std::string path = dir / "after.ark";
    Bytes bytes = BuildArchive({{"old.txt", "old"}});
    const Bytes appended = BuildArchive({{"new.txt", "appended"}, {"dead.txt", "dead", true}});
    bytes.insert(bytes.end(), appended.begin() + 44, appended.begin() + Get32(appended, 24));
    WriteBytes(path, bytes);
    {
        Mount mount("aAfter", path, true);
        EXPECT_EQ("old", Get(mount.name, "old.txt"));
        EXPECT_EQ("appended", Get(mount.name, "new.txt"));
        EXPECT_EQ("<missing>", Get(mount.name, "dead.txt"));
    }
    const Bytes indexed = ReadBytes(path);
    EXPECT_EQ(bytes.size(), Get32(indexed, 24));
    EXPECT_EQ(2u, Get32(indexed, 20));
}

// Lying headers, counts, offsets and lengths: the archive holds no files, or its table is rebuilt
// from the blocks; nothing reads outside the file.
TEST(FileArchive, CorruptArchives)
{
    TempDir dir;
    const std::vector<Stored> files = {{"a.txt", "alpha"}, {"b.txt", Pattern(1000, 2)}, {"c.txt", "gamma"}};
    const Bytes good = BuildArchive(files);
    const uint32_t index = Get32(good, 24);
    const size_t firstRecord = index + 8;
    struct Case
    {
        const char * what;
        size_t at;
        uint32_t value;
        bool found; // whether "a.txt" is still served, from the rebuilt table
    };
    const Case cases[] = {
        {"magic", 0, 0x48435241 + 1, false},
        {"signature", 12, 0x41524330 + 1, false},
        {"info length", 8, 4, false},
        {"count huge", 20, 0xFFFFFFFF, true},
        {"count x 296 wrapping to the index length", 20, 0x20000003, true},
        {"index offset past end", 24, 0x7FFFFFF0, true},
        {"index id", index, 0x21584449, true},
        {"index length", index + 4, 296, true},
        {"record offset past end", firstRecord, 0xFFFFFF00, true},
        {"record length past end", firstRecord + 4, 0xFFFFFFF0, true},
        {"block length short", 48, 100, false},
    };
    for (const Case & test : cases)
    {
        Bytes bytes = good;
        Put32(bytes, test.at, test.value);
        // With a broken index the first block is trusted only through its own header.
        if (std::string(test.what).rfind("block", 0) == 0)
            Put32(bytes, index, 0);
        const std::string path = dir / "corrupt.ark";
        WriteBytes(path, bytes);
        Mount mount("aCorrupt", path);
        EXPECT_EQ(test.found ? "alpha" : "<missing>", Get(mount.name, "a.txt")) << test.what;
        const std::string back = Get(mount.name, "b.txt");
        EXPECT_TRUE(back == files[1].data || back == "<missing>") << test.what;
    }
}

// Files on one archive share its handle: reads on two threads each see their own file.
TEST(FileArchive, TwoFilesTwoThreads)
{
    TempDir dir;
    const std::string path = dir / "threads.ark";
    std::vector<Stored> files;
    for (unsigned n = 0; n < 8; ++n)
        files.push_back({"f" + std::to_string(n), Pattern(50000 + n * 999, n)});
    WriteBytes(path, BuildArchive(files));
    Mount mount("aThreads", path);
    std::atomic<unsigned> wrong{0};
    auto reader = [&](unsigned start)
    {
        for (unsigned round = 0; round < 20; ++round)
        {
            const Stored & stored = files[(start + round) % files.size()];
            wrong += Get(mount.name, stored.name.c_str()) != stored.data;
        }
    };
    std::thread one(reader, 0);
    std::thread two(reader, 3);
    one.join();
    two.join();
    EXPECT_EQ(0u, wrong.load());
}

// The golden archive holds a plain file, a file in a folder and a removed one. Every target
// reads it alike and writes the same bytes from the same inputs.
TEST(FileArchive, GoldenArchive)
{
    TempDir dir;
    const std::string path = dir / "golden.ark";
    const std::string text = "Corestone archive\r\nsecond line\r\n";
    const std::string numbers = Pattern(3000, 5);
    std::string packed;
    for (int line = 0; line < 400; ++line)
        packed += "line " + std::to_string(line % 7) + " of the packed text\r\n";
    {
        Mount mount("aGolden", path, true);
        const struct
        {
            const char * name;
            const std::string & data;
            int64_t seconds;
            unsigned long write;
        } inputs[] = {{"readme.txt", text, 1500000000, File::MODE_WRITE},
                      {"gone.txt", text, 1500000001, File::MODE_WRITE},
                      {"Data/numbers.bin", numbers, 1500000002, File::MODE_WRITE},
                      {"packed.txt", packed, 1500000003, File::MODE_WRITE_COMPRESSED}};
        for (const auto & input : inputs)
        {
            File file;
            ASSERT_EQ(File::RES_OK, file.Open(mount.name, input.name, input.write | File::MODE_CREATE));
            file.Write(input.data.data(), static_cast<unsigned long>(input.data.size()), 1);
            file.SetStamp(File::Time::FromUnixSeconds(input.seconds));
            file.Close();
        }
        ASSERT_TRUE(File::Remove(mount.name, "gone.txt"));
    }
    const Bytes written = ReadBytes(path);
    if (const char * update = getenv("CORESTONE_UPDATE_GOLDEN"))
        WriteBytes(std::string(update) + "/Archive.ark", written);
    const std::string golden = TestSupport::DataFile("Archive.ark");
    EXPECT_EQ(ReadBytes(golden), written);

    Mount mount("aGolden", golden);
    EXPECT_EQ(text, Get(mount.name, "README.TXT"));
    EXPECT_EQ("<missing>", Get(mount.name, "gone.txt"));
    EXPECT_EQ(Names({"readme.txt", "Data/", "packed.txt"}), Listing("aGolden:*"));
    EXPECT_TRUE(packed == Get(mount.name, "packed.txt"));
}

// Removing the substitution while a file is being written: it is still stored when it closes,
// and the index is written when it lets the archive go.
TEST(FileArchive, RemovedWhileFilesAreOpen)
{
    TempDir dir;
    const std::string path = dir / "open.ark";
    Mount mount("aOpen", path, true);
    ASSERT_TRUE(Put(mount.name, "first.txt", "first"));
    File writing;
    ASSERT_EQ(File::RES_OK, writing.Open("aOpen:late.txt", File::MODE_WRITE | File::MODE_CREATE));
    mount.Close();
    EXPECT_EQ(44u + 8 + 288 + 5, ReadBytes(path).size());
    writing.Write("written late", 12, 1);
    EXPECT_EQ(0u, writing.Close());
    Mount again("aOpen", path);
    EXPECT_EQ("written late", Get(again.name, "late.txt"));
    const Bytes bytes = ReadBytes(path);
    EXPECT_EQ(2u, Get32(bytes, 20));
    EXPECT_EQ(bytes.size(), Get32(bytes, 24) + 8u + 2 * 296u);
}
