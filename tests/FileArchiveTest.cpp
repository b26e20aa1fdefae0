#include "File.h"
#include "FileSub.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
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

void AppendText(Bytes & bytes, const char * text, size_t length)
{
    bytes.insert(bytes.end(), text, text + length);
}

void Append32(Bytes & bytes, uint32_t value)
{
    AppendText(bytes, "1234", 4);
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
    AppendText(bytes, "ARCHINFO", 8);
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
        AppendText(bytes, file.removed ? "FIL!" : "FIL\0", 4);
        Append32(bytes, static_cast<uint32_t>(288 + file.data.size()));
        bytes.insert(bytes.end(), entry.begin(), entry.end());
        if (!file.removed)
        {
            Append32(index, static_cast<uint32_t>(bytes.size()));
            Append32(index, static_cast<uint32_t>(file.data.size()));
            index.insert(index.end(), entry.begin(), entry.end());
            ++count;
        }
        AppendText(bytes, file.data.data(), file.data.size());
    }
    Put32(bytes, 20, count);
    Put32(bytes, 24, static_cast<uint32_t>(bytes.size()));
    AppendText(bytes, "IDX ", 4);
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
    ASSERT_EQ(44u, made.size());
    EXPECT_EQ("ARCHINFO", Id(made, 0) + Id(made, 4));
    const uint32_t words[] = {32, 0x41524330, 258, 0, 0, 0, 0, 0, 0};
    for (size_t i = 0; i < 9; ++i)
        EXPECT_EQ(words[i], Get32(made, 8 + 4 * i)) << i;

    // Closed empty, it gains an empty index after the INFO block.
    mount.Close();
    const Bytes closed = ReadBytes(path);
    ASSERT_EQ(52u, closed.size());
    EXPECT_EQ("IDX ", Id(closed, 44));
    EXPECT_EQ(0u, Get32(closed, 48));
    EXPECT_EQ(44u, Get32(closed, 24));

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
    EXPECT_EQ(257u, Get32(old, 16));
    EXPECT_EQ("new text", std::string(old.begin() + 44 + 307 + 296, old.begin() + 44 + 307 + 304));

    // A missing read-only archive holds no files and throws nothing.
    Mount missing("aMissing", dir / "none.ark");
    EXPECT_EQ(File::RES_FILENOTFOUND, File::Exists(missing.name, "a.txt"));
    EXPECT_EQ(File::RES_FILENOTFOUND, File::Exists((dir / "none.ark").c_str()));

    EXPECT_EQ(
        "Corestone/FileSubArchive: Substitute() Open new archive failed",
        FileFailure([&] { File::Subst(PString("aCannot"), (dir / "no/such/folder.ark").c_str(), true); }));
    // Nor is an archive made under a name cut at the path's bound.
    const std::string tooLong = dir / (std::string(File::MAX_PATH_LENGTH, 'a') + ".ark");
    EXPECT_THROW(File::Subst(PString("aCannot"), tooLong.c_str(), true), Kiv::FileEx);
    File::Subst(PString("aCannot"), nullptr);
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
        EXPECT_EQ("", Get(mount.name, "empty.txt"));
        EXPECT_EQ(5u, mount.Archive().FileCount());
        // No temporary files are left beside the archive.
        EXPECT_EQ(Names({"round.ark"}), Listing(dir.Path() + "/*"));
    }
    Mount mount("aRound", path);
    EXPECT_EQ(5u, mount.Archive().FileCount());
    EXPECT_EQ(big, Get(mount.name, "Big.bin"));
    EXPECT_EQ("x", Get(mount.name, "maps/deep/x.txt"));
    File::Path found;
    ASSERT_EQ(File::RES_OK, File::ExistsIgnoreCase("aRound:MAPS/level1.MAP", found));
    EXPECT_STREQ("aRound:/Maps/Level1.map", found.Text());
    EXPECT_EQ(File::RES_OK, File().Open(found, File::MODE_READ));
    // A name that fits the archive but not behind the substitution's prefix is not listed.
    EXPECT_EQ(Names({"Big.bin", "empty.txt", "Maps/"}), Listing("aRound:*"));
    EXPECT_EQ(Names({"Level1.map", "deep/"}), Listing("aRound:maps/*"));
    EXPECT_EQ(Names({"Level1.map"}), Listing("aRound:maps/*.map"));
    EXPECT_EQ(Names({"aRound:maps/deep/x.txt"}), Listing("aRound:maps/deep/*", true));

    // Reads and seeks inside a stored file stay inside it.
    File file;
    ASSERT_EQ(File::RES_OK, file.Open("aRound:Big.bin", File::MODE_READ));
    EXPECT_EQ(big.size(), file.Size());
    file.SeekEnd(10);
    char tail[32] = {};
    EXPECT_EQ(10u, file.Read(tail, sizeof(tail), 1));
    EXPECT_EQ(big.substr(big.size() - 10), std::string(tail, 10));
    file.SeekSet(20000);
    std::string middle(30000, 0);
    EXPECT_EQ(20000u, file.Read(&middle[0], 30000, 1));
    EXPECT_EQ(big.substr(20000), middle.substr(0, 20000));
    EXPECT_THROW(file.Write("x", 1, 1), Kiv::FileEx);
    file.Close();
    // A read-only archive takes no writes or removals.
    EXPECT_FALSE(Put(mount.name, "new.txt", "new"));
    EXPECT_FALSE(File::Remove(mount.name, "Big.bin"));
    EXPECT_EQ(0u, File::OpenCount());
}

TEST(FileArchive, ReplaceRemoveStampsAndModes)
{
    TempDir dir;
    const std::string path = dir / "edit.ark";
    Mount mount("aEdit", path, true);
    ASSERT_TRUE(Put(mount.name, "a.txt", "first"));
    File::Time stamp = File::Time::FromUnixSeconds(1600000000);
    File::SetStamp(stamp, mount.name, "a.txt");
    File::Time back;
    ASSERT_TRUE(File::GetStamp(back, mount.name, "a.txt"));
    EXPECT_EQ(stamp, back);

    // Replacing marks the old block "FIL!" and appends the new one, keeping the creation stamp.
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(mount.name, "A.TXT", File::MODE_WRITE | File::MODE_CREATE));
    file.Write("second", 6, 1);
    const File::Time later = File::Time::FromUnixSeconds(1700000000);
    ASSERT_TRUE(file.SetStamp(later));
    file.Close();
    EXPECT_EQ("second", Get(mount.name, "a.txt"));
    File::Time modified;
    ASSERT_TRUE(File::GetStamp(modified, mount.name, "a.txt"));
    EXPECT_EQ(later, modified);

    // Creating anew refuses an existing name; appending and opening keep the stored bytes.
    EXPECT_EQ(File::RES_FILEALREADYEXISTS,
              file.Open(mount.name, "a.txt", File::MODE_WRITE | File::MODE_CREATE_NEW));
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(mount.name, "none.txt", File::MODE_WRITE));
    ASSERT_TRUE(Put(mount.name, "a.txt", "+more", File::MODE_WRITE | File::MODE_APPEND));
    EXPECT_EQ("second+more", Get(mount.name, "a.txt"));
    ASSERT_EQ(File::RES_OK, file.Open(mount.name, "a.txt", File::MODE_READ | File::MODE_WRITE));
    char head[6] = {};
    EXPECT_EQ(6u, file.Read(head, 6, 1));
    file.SeekSet(0);
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
    ASSERT_TRUE(File::GetStamp(modified, reopened.name, "a.txt"));
    EXPECT_EQ(1u, reopened.Archive().FileCount());
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
        Mount mount("aAfter", path);
        EXPECT_EQ("old", Get(mount.name, "old.txt"));
        EXPECT_EQ("appended", Get(mount.name, "new.txt"));
        EXPECT_EQ("<missing>", Get(mount.name, "dead.txt"));
    }
    EXPECT_EQ(bytes, ReadBytes(path));
    {
        Mount mount("aAfter", path, true);
        EXPECT_EQ(2u, mount.Archive().FileCount());
    }
    const Bytes indexed = ReadBytes(path);
    EXPECT_EQ(bytes.size(), Get32(indexed, 24));
    EXPECT_EQ(2u, Get32(indexed, 20));
    Mount mount("aAfter", path);
    EXPECT_EQ("appended", Get(mount.name, "new.txt"));
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
        {"info id", 4, 0, false},
        {"info length", 8, 4, false},
        {"count huge", 20, 0xFFFFFFFF, true},
        {"count x 296 wrapping to the index length", 20, 0x20000003, true},
        {"count one too many", 20, 4, true},
        {"index offset past end", 24, 0x7FFFFFF0, true},
        {"index offset inside info", 24, 8, true},
        {"index id", index, 0x21584449, true},
        {"index length", index + 4, 296, true},
        {"record offset past end", firstRecord, 0xFFFFFF00, true},
        {"record length past end", firstRecord + 4, 0xFFFFFFF0, true},
        {"record offset in header", firstRecord, 4, true},
        {"block length short", 48, 100, false},
        {"block length huge", 48, 0xFFFFFFFF, false},
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
        for (const Stored & file : files)
        {
            const std::string back = Get(mount.name, file.name.c_str());
            EXPECT_TRUE(back == file.data || back == "<missing>") << test.what;
        }
        Listing("aCorrupt:*");
    }
    // Every truncation of a valid archive opens cleanly and serves only whole files.
    for (size_t length = 0; length <= good.size(); length += length < 80 ? 1 : 37)
    {
        const std::string path = dir / "cut.ark";
        WriteBytes(path, Bytes(good.begin(), good.begin() + static_cast<long>(length)));
        Mount mount("aCut", path);
        for (const Stored & file : files)
        {
            const std::string back = Get(mount.name, file.name.c_str());
            EXPECT_TRUE(back == file.data || back == "<missing>") << length;
        }
        size_t whole = 0;
        for (size_t at = 44; length >= 44 && at + 8 <= length && at + 8 + Get32(good, at + 4) <= length;
             at += 8 + Get32(good, at + 4))
            whole += Id(good, at) == std::string("FIL\0", 4);
        EXPECT_EQ(whole, Listing("aCut:*").size()) << length;
    }
    // A writable archive whose index was lost writes a fresh one where the old one stood.
    Bytes lost = good;
    Put32(lost, index, 0);
    lost.resize(lost.size() + 5, 'z');
    const std::string path = dir / "lost.ark";
    WriteBytes(path, lost);
    Mount("aLost", path, true).Close();
    EXPECT_EQ(good, ReadBytes(path));
}

// Files on one archive share its handle: reads on two threads, interleaved in small pieces, each
// see their own file.
TEST(FileArchive, TwoFilesTwoThreads)
{
    TempDir dir;
    const std::string path = dir / "threads.ark";
    std::vector<Stored> files;
    for (unsigned n = 0; n < 8; ++n)
        files.push_back({"f" + std::to_string(n), Pattern(50000 + n * 999, n)});
    WriteBytes(path, BuildArchive(files));
    Mount mount("aThreads", path);
    // Two files on one handle read in turns, then on two threads.
    File first;
    File second;
    ASSERT_EQ(File::RES_OK, first.Open("aThreads:f0", File::MODE_READ));
    ASSERT_EQ(File::RES_OK, second.Open("aThreads:f1", File::MODE_READ));
    std::string a(20000, 0);
    std::string b(20000, 0);
    for (size_t at = 0; at < a.size(); at += 100)
    {
        first.Read(&a[at], 1, 100);
        second.Read(&b[at], 1, 100);
    }
    EXPECT_TRUE(files[0].data.substr(0, 20000) == a && files[1].data.substr(0, 20000) == b);
    std::atomic<unsigned> wrong{0};
    auto reader = [&](unsigned start)
    {
        for (unsigned round = 0; round < 20; ++round)
        {
            const Stored & stored = files[(start + round) % files.size()];
            File file;
            wrong += file.Open(mount.name, stored.name.c_str(), File::MODE_READ) != File::RES_OK;
            std::string data(stored.data.size(), 0);
            for (size_t at = 0; file.IsOpen() && at < data.size(); at += 777)
                file.Read(&data[at], 1, static_cast<unsigned long>(std::min<size_t>(777, data.size() - at)));
            wrong += data != stored.data;
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
    EXPECT_EQ(numbers, Get(mount.name, "data/numbers.bin"));
    EXPECT_EQ("<missing>", Get(mount.name, "gone.txt"));
    File::Time stamp;
    ASSERT_TRUE(File::GetStamp(stamp, mount.name, "data/numbers.bin"));
    EXPECT_EQ(1500000002, stamp.UnixSeconds());
    EXPECT_EQ(Names({"readme.txt", "Data/", "packed.txt"}), Listing("aGolden:*"));
    // The compressed file is stored in the "CFIL" form, flagged in its entry, and read plain.
    EXPECT_TRUE(packed == Get(mount.name, "packed.txt"));
    File::Find find;
    ASSERT_TRUE(find.Open("aGolden:pack*"));
    EXPECT_TRUE(find.Current().IsCompressed());
    EXPECT_EQ(packed.size(), find.Current().size);
    File file;
    ASSERT_EQ(File::RES_OK, file.Open(mount.name, "packed.txt", File::MODE_READ));
    EXPECT_TRUE(file.IsCompressed());
    file.SeekSet(5000);
    char piece[8] = {};
    EXPECT_EQ(8u, file.Read(piece, 8, 1));
    EXPECT_EQ(packed.substr(5000, 8), std::string(piece, 8));
    file.Close();
    const Bytes bytes = ReadBytes(golden);
    size_t at = 44;
    while (Id(bytes, at + 8) != "pack")
        at += 8 + Get32(bytes, at + 4);
    EXPECT_EQ("CFIL", Id(bytes, at + 296));
    EXPECT_LT(Get32(bytes, at + 4) - 288, packed.size() / 4);
}

// Removing the substitution while its files are open: reads go on, a file being written is still
// stored when it closes, and the index is written when the last of them lets the archive go.
TEST(FileArchive, RemovedWhileFilesAreOpen)
{
    TempDir dir;
    const std::string path = dir / "open.ark";
    const std::string big = Pattern(30000, 9);
    {
        Mount mount("aOpen", path, true);
        ASSERT_TRUE(Put(mount.name, "big.bin", big));
    }
    const size_t indexed = ReadBytes(path).size();
    Mount mount("aOpen", path, true);
    File reading;
    File writing;
    ASSERT_EQ(File::RES_OK, reading.Open("aOpen:big.bin", File::MODE_READ));
    ASSERT_EQ(File::RES_OK, writing.Open("aOpen:late.txt", File::MODE_WRITE | File::MODE_CREATE));
    mount.Close();
    EXPECT_EQ(File::RES_SUBSTNOTFOUND, File::SubstExists(mount.name));
    std::string back(big.size(), 0);
    EXPECT_EQ(big.size(), reading.Read(&back[0], static_cast<unsigned long>(back.size()), 1));
    EXPECT_TRUE(big == back);
    reading.Close();
    EXPECT_EQ(indexed, ReadBytes(path).size());
    writing.Write("written late", 12, 1);
    EXPECT_EQ(0u, writing.Close());
    Mount again("aOpen", path);
    EXPECT_EQ("written late", Get(again.name, "late.txt"));
    const Bytes bytes = ReadBytes(path);
    EXPECT_EQ(2u, Get32(bytes, 20));
    EXPECT_EQ(bytes.size(), Get32(bytes, 24) + 8u + 2 * 296u);
}
