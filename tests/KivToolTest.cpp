// The kiv tool run as a user runs it: a real directory tree packed, listed, extracted and compared
// byte for byte, plain and compressed, and the error paths with their messages and exit codes.
#include "BPE.h"
#include "Bitmap.h"
#include "ConfigParser.h"
#include "File.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <map>
#include <string>
#include <vector>

using Kiv::File;
using TestSupport::ReadBytes;
using TestSupport::TempDir;
using TestSupport::WriteBytes;
using TestSupport::WriteText;
namespace fs = std::filesystem;

namespace
{
using Bytes = std::vector<unsigned char>;

struct Outcome
{
    int code;
    std::string out;
    std::string err;
};

// Puts the working folder back however the test ends.
class WorkingFolder
{
public:
    explicit WorkingFolder(const std::string & folder) : saved(fs::current_path())
    {
        fs::current_path(folder);
    }
    ~WorkingFolder() { fs::current_path(saved); }

private:
    fs::path saved;
};

// Runs kiv with the arguments, its output and errors caught in files of dir.
Outcome RunKiv(const TempDir & dir, std::vector<std::string> words)
{
    const std::string out = dir / "kiv.out";
    const std::string err = dir / "kiv.err";
    words.insert(words.begin(), TestSupport::ProgramBeside("kiv"));
    const int code = TestSupport::RunProgram(words, out, err);
    const Bytes output = ReadBytes(out), errors = ReadBytes(err);
    return {code, std::string(output.begin(), output.end()), std::string(errors.begin(), errors.end())};
}

// The lines of a program's output.
std::vector<std::string> Lines(const std::string & text)
{
    std::vector<std::string> lines;
    size_t start = 0;
    // Windows ends the lines of standard output with CR LF.
    for (size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1)
        lines.push_back(text.substr(start, end - start - (end > start && text[end - 1] == '\r')));
    return lines;
}

// Every file below root, by relative name with '/', and its bytes.
std::map<std::string, Bytes> Tree(const std::string & root)
{
    std::map<std::string, Bytes> files;
    for (const auto & item : fs::recursive_directory_iterator(root))
        if (item.is_regular_file())
            files[fs::relative(item.path(), root).generic_string()] = ReadBytes(item.path().string());
    return files;
}

// A tree with what trips up archivers: empty files, sizes around the file buffer and the
// compression chunk, incompressible bytes, deep folders, names with blanks.
std::string MakeTree(const TempDir & dir)
{
    const std::string root = dir / "tree";
    fs::create_directories(root + "/deep/er/still deeper");
    fs::create_directories(root + "/empty folder");
    WriteBytes(root + "/empty.txt", {});
    WriteBytes(root + "/one", {'x'});
    uint32_t state = 12345;
    for (size_t size : {16383, 16384, 16385, 100000})
    {
        Bytes noise(size);
        for (unsigned char & byte : noise)
            byte = static_cast<unsigned char>((state = state * 1103515245 + 12345) >> 24);
        WriteBytes(root + "/deep/noise" + std::to_string(size) + ".bin", noise);
    }
    std::string text;
    for (int line = 0; line < 3000; ++line)
        text += "line " + std::to_string(line) + ": the quick brown fox jumps over the lazy dog\n";
    WriteBytes(root + "/deep/er/still deeper/text file.txt", Bytes(text.begin(), text.end()));
    return root;
}

// A failing command answers 1 and names the file at fault.
Outcome ExpectFails(const TempDir & dir, const std::vector<std::string> & words, const std::string & name)
{
    const Outcome outcome = RunKiv(dir, words);
    EXPECT_EQ(1, outcome.code) << words[0] << " " << name;
    EXPECT_NE(std::string::npos, outcome.err.find(name)) << outcome.err;
    return outcome;
}

std::vector<std::string> Listed(const TempDir & dir, const std::string & archive)
{
    return Lines(RunKiv(dir, {"list", archive}).out);
}
} // namespace

TEST(KivTool, PacksListsAndExtractsATreeByteForByte)
{
    TempDir dir;
    const std::string root = MakeTree(dir);
    const std::map<std::string, Bytes> original = Tree(root);
    std::vector<std::string> names;
    for (const auto & [name, bytes] : original)
        names.push_back(name);

    for (const std::string form : {"plain", "compressed"})
    {
        SCOPED_TRACE(form);
        const bool compressed = form == "compressed";
        const std::string archive = dir / (form + ".arc");
        std::vector<std::string> pack = {"pack", root, archive};
        if (compressed)
            pack.push_back("--compress");
        const Outcome packed = RunKiv(dir, pack);
        ASSERT_EQ(0, packed.code) << packed.err;
        EXPECT_EQ(names, Listed(dir, archive));
        const Outcome extracted = RunKiv(dir, {"extract", archive, dir / (form + "-out")});
        ASSERT_EQ(0, extracted.code) << extracted.err;
        EXPECT_TRUE(Tree(dir / (form + "-out")) == original);
    }

    // One file can be taken out alone.
    const std::string text = "deep/er/still deeper/text file.txt";
    ASSERT_EQ(0, RunKiv(dir, {"extract", dir / "plain.arc", dir / "single", text}).code);
    EXPECT_EQ(1u, Tree(dir / "single").size());
    EXPECT_EQ(original.at(text), ReadBytes(dir / "single" + "/" + text));
}

TEST(KivTool, AddsAndRemovesStoredFiles)
{
    TempDir dir;
    const std::string archive = dir / "work.arc";
    fs::create_directories(dir / "in/sub");
    WriteBytes(dir / "in/a.txt", {'a'});
    WriteBytes(dir / "in/sub/b.txt", {'b', 'b'});
    WorkingFolder inside(dir.Path());
    ASSERT_EQ(0, RunKiv(dir, {"add", "work.arc", "in/a.txt", "./in/sub"}).code);
    EXPECT_EQ((std::vector<std::string>{"in/a.txt", "in/sub/b.txt"}), Listed(dir, archive));

    // Adding a name again replaces the stored file.
    WriteBytes(dir / "in/a.txt", {'n', 'e', 'w'});
    ASSERT_EQ(0, RunKiv(dir, {"add", archive, "in/a.txt", "--compress"}).code);
    ASSERT_EQ(0, RunKiv(dir, {"extract", archive, dir / "x"}).code);
    EXPECT_EQ((Bytes{'n', 'e', 'w'}), ReadBytes(dir / "x/in/a.txt"));

    ASSERT_EQ(0, RunKiv(dir, {"rm", archive, "in/a.txt"}).code);
    EXPECT_EQ((std::vector<std::string>{"in/sub/b.txt"}), Listed(dir, archive));
}

TEST(KivTool, CompressesDecompressesAndChecks)
{
    TempDir dir;
    std::string text;
    for (int i = 0; i < 5000; ++i)
        text += "compressible text " + std::to_string(i % 7) + "\n";
    const Bytes plain(text.begin(), text.end());
    WriteBytes(dir / "plain.txt", plain);
    ASSERT_EQ(0, RunKiv(dir, {"compress", dir / "plain.txt", dir / "packed.cfil"}).code);
    const Bytes packed = ReadBytes(dir / "packed.cfil");
    EXPECT_EQ("CFIL", std::string(packed.begin(), packed.begin() + 4));
    EXPECT_LT(packed.size(), plain.size());
    ASSERT_EQ(0, RunKiv(dir, {"decompress", dir / "packed.cfil", dir / "back.txt"}).code);
    EXPECT_EQ(plain, ReadBytes(dir / "back.txt"));

    const Outcome crc = RunKiv(dir, {"crc", dir / "plain.txt"});
    EXPECT_EQ(0, crc.code);
    char sum[16];
    snprintf(sum, sizeof(sum), "%08lX  ", Kiv::Crc::Calc(plain.data(), plain.size(), 0) & 0xFFFFFFFFul);
    EXPECT_EQ(std::vector<std::string>{sum + (dir / "plain.txt")}, Lines(crc.out));

    // A plain input is not expanded, and a failed output is not left behind.
    ExpectFails(dir, {"decompress", dir / "plain.txt", dir / "never.txt"}, "plain.txt");
    EXPECT_FALSE(fs::exists(dir / "never.txt"));
}

TEST(KivTool, ChecksQueriesAndConvertsConfigurations)
{
    TempDir dir;
    const std::string text = "version 1.50\r\n"
                             "scale = 2.0;\r\n"
                             "item = first;\r\n"
                             "item = \"second one\";\r\n"
                             "\"a.b\" = 1, 2, 3;\r\n"
                             "bytes = : 00FF10;\r\n"
                             "block(\"tag\")\r\n"
                             "{\r\n"
                             "  inner = -7;\r\n"
                             "}\r\n";
    WriteText(dir / "in.cfg", text);
    const Outcome checked = RunKiv(dir, {"cfg", "check", dir / "in.cfg"});
    EXPECT_EQ(0, checked.code) << checked.err;
    EXPECT_EQ("", checked.out + checked.err);

    using Query = std::pair<std::string, std::vector<std::string>>;
    for (const Query & query :
         {Query{"scale", {"2.0"}}, Query{"item[1]", {"second one"}}, Query{"\"a.b\"", {"1", "2", "3"}},
          Query{"bytes", {"00FF10"}}, Query{"block.inner", {"-7"}}, Query{"[5]", {"tag", "inner = -7;"}}})
    {
        const Outcome got = RunKiv(dir, {"cfg", "get", dir / "in.cfg", query.first});
        EXPECT_EQ(0, got.code) << query.first << got.err;
        EXPECT_EQ(query.second, Lines(got.out)) << query.first;
    }

    // Text to binary and back: the text is what the parser's Save writes, and its binary form
    // is the first one byte for byte.
    ASSERT_EQ(0, RunKiv(dir, {"cfg", "tobin", dir / "in.cfg", dir / "in.bin"}).code);
    ASSERT_EQ(0, RunKiv(dir, {"cfg", "totext", dir / "in.bin", dir / "back.cfg"}).code);
    ASSERT_EQ(0, RunKiv(dir, {"cfg", "tobin", dir / "back.cfg", dir / "back.bin"}).code);
    const Bytes binary = ReadBytes(dir / "in.bin");
    ASSERT_GE(binary.size(), 4u);
    EXPECT_EQ((Bytes{'C', 'D', 1, 1}), Bytes(binary.begin(), binary.begin() + 4));
    EXPECT_EQ(binary, ReadBytes(dir / "back.bin"));
    Kiv::ConfigParser parser;
    ASSERT_TRUE(parser.Parse((dir / "in.cfg").c_str()).Succeeded());
    parser.SetVersion(1.0f);
    ASSERT_EQ(File::RES_OK, parser.Save((dir / "saved.cfg").c_str()).Value());
    EXPECT_EQ(ReadBytes(dir / "saved.cfg"), ReadBytes(dir / "back.cfg"));
}

TEST(KivTool, ConfigurationErrorsNameTheFileAndTheLine)
{
    TempDir dir;
    WriteText(dir / "broken.cfg", "version 1.00\r\na = 1;\r\nb = 2\r\nc = 3;\r\n");
    const Outcome broken = ExpectFails(dir, {"cfg", "check", dir / "broken.cfg"}, "broken.cfg");
    EXPECT_NE(std::string::npos, broken.err.find("broken.cfg(4): Syntax error at c.")) << broken.err;
    // A binary file cut short is refused, and the output it was to become is not left behind.
    WriteBytes(dir / "cut.bin", {'C', 'D', 1, 1, 0, 0, 0, 0, 5, 1, 0});
    ExpectFails(dir, {"cfg", "totext", dir / "cut.bin", dir / "never.cfg"}, "cut.bin");
    EXPECT_FALSE(fs::exists(dir / "never.cfg"));
    WriteText(dir / "ok.cfg", "version 1.00\r\na { b = 1; }\r\n");
    ExpectFails(dir, {"cfg", "get", dir / "ok.cfg", "a.c"}, "ok.cfg");

    for (const std::vector<std::string> & words : {std::vector<std::string>{"cfg", "lint", dir / "ok.cfg"},
                                                   {"cfg", "get", dir / "ok.cfg"},
                                                   {"cfg", "get", dir / "ok.cfg", "a[x]"},
                                                   {"cfg", "get", dir / "ok.cfg", "a..b"}})
        EXPECT_EQ(2, RunKiv(dir, words).code) << words.back();
}

TEST(KivTool, ErrorsNameTheFileAndTheReason)
{
    TempDir dir;
    ExpectFails(dir, {"list", dir / "missing.arc"}, "missing.arc");
    ExpectFails(dir, {"pack", dir / "nofolder", dir / "x.arc"}, "nofolder");
    // A stored name that leads out of the folder (the archive itself takes it) is never extracted there.
    const std::string hostile = dir / "hostile.arc";
    const Kiv::PString subst("kivtest-hostile");
    Kiv::File::Subst(subst, hostile.c_str(), true);
    Kiv::File stored;
    const bool made = stored.Open(subst, "../escape.txt", Kiv::File::MODE_WRITE | Kiv::File::MODE_CREATE) ==
                      Kiv::File::RES_OK;
    stored.Write("x", 1, 1);
    stored.Close();
    Kiv::File::Subst(subst, nullptr);
    if (made)
    {
        ExpectFails(dir, {"extract", hostile, dir / "inside"}, "escape.txt");
        EXPECT_FALSE(fs::exists(dir / "escape.txt"));
    }

    // Usage: help answers 0 on standard output; mistakes answer 2.
    const Outcome help = RunKiv(dir, {"--help"});
    EXPECT_EQ(0, help.code);
    EXPECT_NE(std::string::npos, help.out.find("decompress"));
    for (const std::vector<std::string> & words :
         {std::vector<std::string>{"unpack"}, {"list", "--fast", "a"}})
        EXPECT_EQ(2, RunKiv(dir, words).code) << words.back();
}

TEST(KivTool, ImageInfoAndConvert)
{
    TempDir dir;
    const std::string images = TestSupport::DataFile("images") + "/";
    const Outcome info =
        RunKiv(dir, {"img", "info", images + "tga-p8.tga", images + "bmp-rgba32.bmp", dir / "no.pcx"});
    EXPECT_EQ(1, info.code);
    EXPECT_EQ((std::vector<std::string>{"12x7 Indexed8  " + images + "tga-p8.tga",
                                        "8x4 XRGB32    " + images + "bmp-rgba32.bmp"}),
              Lines(info.out));
    EXPECT_NE(std::string::npos, info.err.find("no.pcx")) << info.err;

    // An opaque image becomes a 32-bit TGA or a 24-bit BMP of the same pixels.
    Kiv::Bitmap source, converted;
    ASSERT_TRUE(source.Load(Kiv::PString((images + "pcx-p8.pcx").c_str()), Kiv::PString()));
    for (const char * name : {"out.tga", "out.bmp"})
    {
        const Outcome convert = RunKiv(dir, {"img", "convert", images + "pcx-p8.pcx", dir / name});
        ASSERT_EQ(0, convert.code) << convert.err;
        ASSERT_TRUE(converted.Load(Kiv::PString((dir / name).c_str()), Kiv::PString()));
        EXPECT_EQ(std::string(name) == "out.tga" ? Kiv::Bitmap::ARGB32 : Kiv::Bitmap::XRGB32,
                  converted.GetFormat());
        EXPECT_EQ(0, memcmp(source.GetPtr(), converted.GetPtr(), source.GetNumBytes())) << name;
    }
    ExpectFails(dir, {"img", "convert", images + "tga-rle24.tga", dir / "x.bmp"}, "tga-rle24.tga");
    ExpectFails(dir, {"img", "convert", images + "tga-p8.tga", dir / "x.png"}, "x.png");
    for (const std::vector<std::string> & words :
         {std::vector<std::string>{"img", "convert", "a.tga"}, {"img", "scale", "a.tga"}, {"img"}})
        EXPECT_EQ(2, RunKiv(dir, words).code) << words.back();
}
