#include "File.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

using Path = Kiv::File::Path;

namespace
{
std::string Edited(const char * text, void (*edit)(Path &))
{
    Path path(text);
    edit(path);
    return path.Text();
}
} // namespace

TEST(FilePath, ExtensionsAndEquality)
{
    EXPECT_STREQ("txt", Path::GetExt("dir.d/name.txt"));
    for (const char * none : {"dir.d/name", "data:x", "", static_cast<const char *>(nullptr)})
        EXPECT_EQ(nullptr, Path::GetExt(none));
    EXPECT_TRUE(Path::IsEqual("a/b", "a\\b/c"));
    EXPECT_FALSE(Path::IsEqual("A", "a"));
    EXPECT_TRUE(Path::IsEqual("", "anything"));
    EXPECT_FALSE(Path::IsEqual("a", nullptr));

    Path path("x.bmp");
    EXPECT_TRUE(path.IsExt(".BMP"));
    EXPECT_FALSE(path.IsExt("bm"));
    path.SetExt(".png");
    EXPECT_STREQ("x.png", path);
    path.SetExt(nullptr);
    EXPECT_STREQ("x", path);
    path = "dir.d/name";
    path.SetExt("txt");
    EXPECT_STREQ("dir.d/name.txt", path);
}

TEST(FilePath, Edits)
{
    Path path;
    path.AddSlash();
    EXPECT_STREQ("/", path);
    path = "data:";
    path.AddSlash();
    EXPECT_STREQ("data:", path);
    path.AddPath("//y/z", 3);
    EXPECT_STREQ("data:/y", path);

    EXPECT_EQ("a/c.txt", Edited("a/b/c.txt", [](Path & p) { p.PrevDir(); }));
    EXPECT_EQ("name.txt", Edited("name.txt", [](Path & p) { p.PrevDir(); }));
    EXPECT_EQ("data:/c.txt", Edited("data:/a/b/c.txt", [](Path & p) { p.RootDir(); }));
    EXPECT_EQ("data:x", Edited("data:x", [](Path & p) { p.RootDir(); }));
    EXPECT_EQ("a/b/", Edited("a/b/c", [](Path & p) { p.DelName(); }));
    EXPECT_EQ("data:", Edited("data:c", [](Path & p) { p.DelName(true); }));
    EXPECT_EQ("a/b", Edited("a/b\\", [](Path & p) { p.DelSlash(); }));

    path.Make("data", "/x.txt");
    EXPECT_STREQ("data:/x.txt", path);
    path.Make("a/b", "c");
    EXPECT_STREQ("a/c", path);
    path.Make("", "y");
    EXPECT_STREQ("y", path);
    path.Make(path, path);
    EXPECT_STREQ("y:/y", path);

    EXPECT_EQ("a/c", Edited("a/./b/../c", [](Path & p) { p.Normalize(); }));
    EXPECT_EQ("../../x", Edited("../../x", [](Path & p) { p.Normalize(); }));
    EXPECT_EQ("/a/c", Edited("\\a//b\\..\\c\\", [](Path & p) { p.Normalize(); }));
    EXPECT_EQ("data:/x", Edited("data:\\y\\..\\x", [](Path & p) { p.Normalize(); }));
}

TEST(FilePath, FurtherEditsAndSplits)
{
    EXPECT_EQ("aef", Edited("abcdef", [](Path & p) { p.Del(1, 3); }));
    EXPECT_EQ("/x", Edited("data:/x", [](Path & p) { p.DelDrive(); }));
    EXPECT_EQ("a/b/", Edited("a/b/c.txt", [](Path & p) { p.DelFileName(); }));
    EXPECT_EQ("c.txt", Edited("data:a/b/c.txt", [](Path & p) { p.DelPath(); }));
    EXPECT_EQ("data:/a", Edited("data:/a/b/c", [](Path & p) { p.ExtractFirstPath(); }));

    Path path;

    path = "a/b/c/d.txt";
    EXPECT_TRUE(path.MakeRelativeTo("a/b"));
    EXPECT_STREQ("c/d.txt", path);
    path = "a/x/d.txt";
    EXPECT_TRUE(path.MakeRelativeTo("a/b/c/"));
    EXPECT_STREQ("../../x/d.txt", path);
    path = "data:/x";
    EXPECT_FALSE(path.MakeRelativeTo("other:/y"));
    EXPECT_STREQ("data:/x", path);

    char drive[Kiv::File::MAX_PATH_LENGTH];
    char directory[Kiv::File::MAX_PATH_LENGTH];
    char name[Kiv::File::MAX_PATH_LENGTH];
    char ext[Kiv::File::MAX_PATH_LENGTH];
    Path("c:\\dir/sub\\file.tar.gz").SplitPath(drive, directory, name, ext);
    EXPECT_STREQ("c:", drive);
    EXPECT_STREQ("\\dir/sub\\", directory);
    EXPECT_STREQ("file.tar", name);
    EXPECT_STREQ(".gz", ext);
    // Buffers of exactly the bound hold any part of the longest path.
    for (const std::string & text : {std::string(Kiv::File::MAX_PATH_LENGTH - 1, 'x'),
                                     "data:" + std::string(Kiv::File::MAX_PATH_LENGTH - 7, '/') + "x",
                                     std::string(Kiv::File::MAX_PATH_LENGTH - 1, ':')})
    {
        std::vector<std::vector<char>> parts(4, std::vector<char>(Kiv::File::MAX_PATH_LENGTH));
        Path(text.c_str()).SplitPath(parts[0].data(), parts[1].data(), parts[2].data(), parts[3].data());
        EXPECT_EQ(text, std::string(parts[0].data()) + parts[1].data() + parts[2].data() + parts[3].data());
    }
}

TEST(FilePath, EditsStopAtTheBuffer)
{
    const std::string longText(500, 'a');
    Path path(longText.c_str());
    EXPECT_EQ(Kiv::File::MAX_PATH_LENGTH - 1, path.Length());
    path.AddPath("more");
    path.AddSlash();
    path.SetExt("extension");
    EXPECT_EQ(Kiv::File::MAX_PATH_LENGTH - 1, path.Length());
    path.Make(longText.c_str(), longText.c_str());
    EXPECT_EQ(Kiv::File::MAX_PATH_LENGTH - 1, path.Length());
    path = (std::string(200, 'b') + "/" + std::string(200, 'c')).c_str();
    path.Normalize();
    EXPECT_EQ(Kiv::File::MAX_PATH_LENGTH - 1, path.Length());
}

TEST(FilePath, Wildcards)
{
    // Names and patterns. A '*' anchors only where the name holds the pattern's next character, a
    // '?' included.
    const char * matching[] = {
        "readme.txt",    "*.TXT",       "b.dds",          "*.tga;*.dds", "textures", "textures*.",
        "textures",      "textures*",   "./a.txt",        ".\\A.TXT",    "abcabd",   "*abd",
        "abc",           "a?c",         "anything",       "*",           "x.y.z",    "*.z",
        "a?x",           "*?x",         "ab.x",           "*.?",         "b.c",      "*.?;*.*",
        "dir/sub/x.txt", "dir/*/*.txt", "DIR\\sub/x.txt", "d*/s?b\\x.*"};
    const char * failing[] = {"a/b.txt", "*.txt", "b.png",         "*.tga;*.dds", "a/c",         "a?c",
                              "abc",     "abcd",  "abx",           "*?x",         "ab",          "*?",
                              "noext",   "*.*",   "dir/sub/x.txt", "dir/*.txt",   "other/x.txt", "dir/*"};
    for (size_t i = 0; i < sizeof(matching) / sizeof(*matching); i += 2)
        EXPECT_TRUE(Path::IsMatch(matching[i], matching[i + 1])) << matching[i] << " " << matching[i + 1];
    for (size_t i = 0; i < sizeof(failing) / sizeof(*failing); i += 2)
        EXPECT_FALSE(Path::IsMatch(failing[i], failing[i + 1])) << failing[i] << " " << failing[i + 1];
    EXPECT_FALSE(Path::IsMatch(nullptr, "*"));

    const char * rest = "untouched";
    const char * name = "dir/sub/x.txt";
    EXPECT_FALSE(Path::IsMatch(name, "dir/", &rest));
    EXPECT_EQ(name + 3, rest);
    EXPECT_FALSE(Path::IsMatch(name, "dir/sub", &rest));
    EXPECT_EQ(name + 7, rest);
    EXPECT_TRUE(Path::IsMatch("a.txt", "*.txt", &rest));
    EXPECT_EQ(nullptr, rest);
}
