#include "File.h"
#include "FileSub.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <string>
#include <thread>
#include <vector>

using Kiv::File;
using Kiv::PString;
using TestSupport::FileFailure;
using TestSupport::Listing;
using TestSupport::TempDir;

namespace
{
const auto Put = TestSupport::WriteText;

std::string Contents(File & file)
{
    char text[64] = {};
    file.Read(text, 1, sizeof(text) - 1);
    return text;
}

// Each test uses its own substitution names and removes them when done.
class Substs
{
public:
    explicit Substs(std::vector<std::string> names) : names(std::move(names)) {}
    ~Substs()
    {
        for (const std::string & name : names)
            File::Subst(PString(name.c_str()), nullptr);
    }
    Substs(const Substs &) = delete;
    Substs & operator=(const Substs &) = delete;

private:
    std::vector<std::string> names;
};

using Names = std::multiset<std::string>;

std::string Folder(const TempDir & dir, const char * name)
{
    const std::string folder = dir / name;
    File::Md(folder.c_str());
    return folder + "/";
}
} // namespace

TEST(FileSubst, NewestPlaceFirstLinksLast)
{
    TempDir dir;
    const Substs cleanup({"sTex", "sBase"});
    const std::string older = Folder(dir, "older");
    const std::string newer = Folder(dir, "newer");
    const std::string base = Folder(dir, "base");
    Put(older + "both.txt", "older");
    Put(newer + "both.txt", "newer");
    Put(older + "only.txt", "only");
    Put(base + "both.txt", "base");
    Put(base + "base.txt", "from base");

    const PString tex("sTex");
    File::Subst(tex, older.c_str());
    File::Subst(PString("sBase"), base.c_str());
    File::SubstLink(tex, PString("sBase"));
    File::Subst(tex, newer.c_str());
    EXPECT_EQ(3u, Kiv::FileSubstitute::Find(tex)->Count());

    File file;
    ASSERT_EQ(File::RES_OK, file.Open("sTex:both.txt", File::MODE_READ));
    EXPECT_EQ(newer + "both.txt", file.Name());
    file.Close();
    // The link is searched after the directory added after it.
    ASSERT_EQ(File::RES_OK, file.Open("sTex:base.txt", File::MODE_READ));
    EXPECT_EQ("from base", Contents(file));
    file.Close();
    File::Path found;
    EXPECT_EQ(File::RES_OK, File::ExistsIgnoreCase("sTex:ONLY.TXT", found));
    EXPECT_EQ(older + "only.txt", found.Text());

    // Removing the linked substitution takes the link with it.
    File::Subst(PString("sBase"), nullptr);
    EXPECT_EQ(2u, Kiv::FileSubstitute::Find(tex)->Count());
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open("sTex:base.txt", File::MODE_READ));
}

TEST(FileSubst, WritingAndFallbacks)
{
    TempDir dir;
    const Substs cleanup({"sOut"});
    const std::string readOnly = Folder(dir, "readonly");
    const std::string writable = Folder(dir, "writable");
    const PString out("sOut");
    File::Subst(out, writable.c_str(), true);
    File::Subst(out, readOnly.c_str(), false);

    File file;
    ASSERT_EQ(File::RES_OK, file.Open("sOut:made.txt", File::MODE_WRITE | File::MODE_CREATE));
    file.Close();
    EXPECT_EQ(File::RES_OK, File::Exists((writable + "made.txt").c_str()));
    EXPECT_TRUE(File::Md("sOut:sub"));
    EXPECT_EQ(File::RES_OK, File::Exists((writable + "sub").c_str()));

    // A name with no substitution entry opens the name after the colon as it stands.
    const std::string plain = dir / "plain.txt";
    Put(plain, "plain");
    ASSERT_EQ(File::RES_OK, file.Open(PString("sUnknown"), plain.c_str(), File::MODE_READ));
    EXPECT_EQ("plain", Contents(file));
    file.Close();

    EXPECT_EQ("Corestone/FileSubstList: SubstLink(sOut,sMissing) Other subst (sMissing) not found",
              FileFailure([&] { File::SubstLink(out, PString("sMissing")); }));
}

TEST(FileSubst, PrefixRules)
{
    TempDir dir;
    const Substs cleanup({"q"});
    File::Subst(PString("q"), Folder(dir, "q").c_str());
    // A one-letter prefix without a slash names a substitution for the path, not for Open.
    EXPECT_EQ(Kiv::FileSubstitute::Find(PString("q")), File::Path("q:x").GetSubst());
    Put(dir / "q/x", "in q");
    File file;
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open("q:x", File::MODE_READ));
}

// A name that fits on its own but not behind the substitution's folder names no file: cut at
// the path's bound it would name another one.
TEST(FileSubst, NamesTooLongBehindTheFolder)
{
    TempDir dir;
    const Substs cleanup({"sLong"});
    const std::string folder = Folder(dir, "long");
    File::Subst(PString("sLong"), folder.c_str(), true);
    const std::string name = std::string(File::MAX_PATH_LENGTH - 10, 'n') + ".txt";
    const std::string cut = (folder + name).substr(0, File::MAX_PATH_LENGTH - 1);
    Put(cut, "cut");
    const std::string prefixed = "sLong:" + name;
    File file;
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(prefixed.c_str(), File::MODE_READ));
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(prefixed.c_str(), File::MODE_WRITE | File::MODE_CREATE));
    EXPECT_FALSE(File::Remove(prefixed.c_str()));
}

TEST(FileFind, DirectoriesAndSubstitutions)
{
    TempDir dir;
    const Substs cleanup({"sFind", "sFindTop"});
    const std::string first = Folder(dir, "first");
    const std::string second = Folder(dir, "second");
    Put(first + "a.tga", "1");
    Put(first + "b.dds", "1");
    Put(first + "c.txt", "1");
    Put(second + "a.tga", "2");
    Put(second + "d.tga", "2");
    Folder(dir, "first/sub");

    Put(first + "noext", "1");
    EXPECT_EQ((Names{"a.tga", "b.dds", "c.txt", "noext", "sub/"}), Listing(first + "*.*"));
    EXPECT_EQ(Names{}, Listing(first + "*.?"));

    File::Subst(PString("sFind"), first.c_str());
    File::Subst(PString("sFind"), second.c_str());
    EXPECT_EQ((Names{"sFind:/a.tga", "sFind:/d.tga"}), Listing("sFind:*.tga", true));
    EXPECT_EQ((Names{"a.tga", "b.dds", "c.txt", "d.tga", "noext", "sub/"}), Listing("sFind:*.*"));
    File::Find find;
    EXPECT_EQ("Corestone/FileFind: Open() Subst not found", FileFailure([&] { find.Open("sNoSuch:*"); }));

    // Through a link, every place of the linked substitution is listed, each name once.
    const std::string top = Folder(dir, "top");
    Put(top + "a.tga", "top");
    Put(top + "t.tga", "top");
    File::Subst(PString("sFindTop"), top.c_str());
    File::SubstLink(PString("sFindTop"), PString("sFind"));
    File::SubstLink(PString("sFindTop"), PString("sFindTop"));
    EXPECT_EQ((Names{"sFindTop:/a.tga", "sFindTop:/b.dds", "sFindTop:/d.tga", "sFindTop:/t.tga"}),
              Listing("sFindTop:*.tga;*.dds", true));
}

namespace
{
// A folder that adopts the files it opens and counts its own destruction.
class CountedPlace : public Kiv::FileSubPath
{
public:
    CountedPlace(const std::string & folder, int & destroyed)
        : FileSubPath(folder.c_str(), false), destroyed(destroyed)
    {
    }
    ~CountedPlace() override { ++destroyed; }

    bool OpenRead(File & file, const char * name) override
    {
        if (!FileSubPath::OpenRead(file, name))
            return false;
        Adopt(file);
        return true;
    }

private:
    int & destroyed;
};
} // namespace

// Links that reach one substitution many ways, or themselves, visit it once: a walk over every
// path below the depth cut would take longer than any caller waits.
TEST(FileSubst, LinksVisitEachSubstitutionOnce)
{
    TempDir dir;
    // Sixteen levels, each linking three times to the next: 3^16 paths to the bottom.
    std::vector<std::string> names = {"sSelf", "sLoopA", "sLoopB"};
    for (int i = 0; i < 16; ++i)
        names.push_back("sW" + std::to_string(i));
    const Substs cleanup(names);
    const PString self("sSelf");
    File::Subst(self, Folder(dir, "self").c_str());
    for (int i = 0; i < 3; ++i)
        File::SubstLink(self, self);
    File::Subst(PString("sLoopA"), Folder(dir, "a").c_str());
    File::SubstLink(PString("sLoopB"), PString("sLoopA"));
    File::SubstLink(PString("sLoopA"), PString("sLoopB"));
    File file;
    for (const char * missing : {"sSelf:none", "sLoopA:none", "sLoopB:none"})
        EXPECT_EQ(File::RES_FILENOTFOUND, file.Open(missing, File::MODE_READ));

    const std::string bottom = Folder(dir, "bottom");
    File::Subst(PString(names.back().c_str()), bottom.c_str(), true);
    for (int i = 17; i >= 3; --i)
        for (int link = 0; link < 3; ++link)
            File::SubstLink(PString(names[i].c_str()), PString(names[i + 1].c_str()));
    EXPECT_EQ(File::RES_FILENOTFOUND, file.Open("sW0:none", File::MODE_READ));
    ASSERT_EQ(File::RES_OK, file.Open("sW0:made.txt", File::MODE_WRITE | File::MODE_CREATE));
    file.Close();
    File::Path found;
    EXPECT_EQ(File::RES_OK, File::ExistsIgnoreCase("sW0:MADE.TXT", found));
    EXPECT_EQ(bottom + "made.txt", found.Text());
}

// A member removed from its substitution lives on while an open file or a search still uses it.
TEST(FileSubst, RemovedMembersOutliveTheirUsers)
{
    TempDir dir;
    const Substs cleanup({"sGone"});
    const std::string first = Folder(dir, "first");
    const std::string second = Folder(dir, "second");
    Put(first + "a.txt", "first a");
    Put(second + "b.txt", "second b");
    const PString gone("sGone");
    int destroyed = 0;
    File::Subst(gone, second.c_str());
    File::Path("sGone:x").GetSubst()->AddFront(new CountedPlace(first, destroyed));

    File file;
    ASSERT_EQ(File::RES_OK, file.Open("sGone:a.txt", File::MODE_READ));
    File::Find find;
    ASSERT_TRUE(find.Open("sGone:*.txt"));
    std::set<std::string> names{find.Name()};
    File::Subst(gone, nullptr);
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ("first a", Contents(file));
    while (find.Next())
        names.insert(find.Name());
    EXPECT_EQ((std::set<std::string>{"a.txt", "b.txt"}), names);
    find.Close();
    EXPECT_EQ(0, destroyed);
    EXPECT_EQ(0u, file.Close());
    EXPECT_EQ(1, destroyed);
}

// Substitutions added and removed while other threads open, test and list through them.
TEST(FileSubst, RemovalWhileOtherThreadsWalk)
{
    TempDir dir;
    const Substs cleanup({"sBusy", "sBusyLink"});
    const std::string folder = Folder(dir, "busy");
    Put(folder + "b.txt", "b");
    std::atomic<bool> done{false};
    std::thread opener(
        [&]
        {
            for (File file; !done; file.Close())
                EXPECT_TRUE(file.Open("sBusyLink:b.txt", File::MODE_READ) != File::RES_OK ||
                            Contents(file) == "b");
        });
    // Removed between the two calls, the search may throw.
    std::thread lister(
        [&]
        {
            while (!done)
            {
                if (File::SubstExists(PString("sBusyLink")) == File::RES_OK)
                    FileFailure([] { Listing("sBusyLink:*"); });
            }
        });
    const PString busy("sBusy");
    const PString link("sBusyLink");
    for (int round = 0; round < 300; ++round)
    {
        File::Subst(busy, folder.c_str());
        File::Subst(link, folder.c_str());
        File::SubstLink(link, busy);
        File::Subst(busy, nullptr);
        File::Subst(link, nullptr);
    }
    done = true;
    opener.join();
    lister.join();
    EXPECT_EQ(0u, File::OpenCount());
}
