#include "Kiv.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstring>
#include <limits>
#include <string>
#include <vector>

using Kiv::ConfigData;
using Kiv::File;
using Kiv::PString;
using TestSupport::DataFile;
using TestSupport::ReadBytes;
using TestSupport::TempDir;

namespace
{
// One tree with every data type, names and values that need quotes and escapes, an array long
// enough to wrap, byte arrays of one and of 40 bytes, nested blocks and duplicate names.
void BuildSample(ConfigData & root)
{
    root.New("int") << -42;
    root.New("float") << 1.5f;
    root.New("big") << 123456789.0f;
    root.New("tiny") << 1e-5f;
    root.New("eight") << 12345678.0f;
    const float infinity = std::numeric_limits<float>::infinity();
    root.New("inf") << -infinity;
    // The x86 default NaN: 0xFFC00000.
    root.New("indefinite") << -std::numeric_limits<float>::quiet_NaN();
    root.New("text") << "plain";
    root.New("spaced words") << "two words";
    root.New("digit") << "9lives";
    root.New("escapes") << "tab\there \"q\" back\\slash `tick`\r\n";
    root.New("") << 1;
    root.New() << 7;
    const int one[] = {7};
    root.New("one").SetIntArray(one, 1);
    const float floats[] = {0.25f, -2.0f, 1e10f, infinity};
    root.New("floats").SetFloatArray(floats, 4);
    const PString names[] = {"a", "b c", PString(), "x;y"};
    root.New("names").SetPStringArray(names, 4);
    std::vector<int> many;
    for (int i = 0; i < 40; ++i)
        many.push_back(1000000 + 12345 * i);
    root.New("many").SetIntArray(many.data(), 40);
    unsigned char bytes[40];
    for (int i = 0; i < 40; ++i)
        bytes[i] = static_cast<unsigned char>(i * 7);
    root.New("bytes").SetByteArray(bytes, 40);
    root.New("onebyte").SetByteArray(bytes + 39, 1);
    ConfigData & block = root.New("block", "v");
    block.New("child") << 1;
    block.New("inner").New("deep", "x");
    block.New("child") << 2;
    root.New("empty");
    root.New("after") << "end";
}

std::string Text(const ConfigData & root, int encoding = 0)
{
    PString text;
    EXPECT_TRUE(root.Write(text, encoding));
    return std::string(static_cast<const char *>(text) ? static_cast<const char *>(text) : "", text.Length());
}

std::vector<unsigned char> Bytes(const PString & text)
{
    const auto * start = reinterpret_cast<const unsigned char *>(static_cast<const char *>(text));
    return std::vector<unsigned char>(start, start + text.Length());
}

// Same names (an empty one as good as none), data and children, in the same order.
bool SameTree(const ConfigData & a, const ConfigData & b)
{
    if (a.GetName().Compare(b.GetName()) != 0 || !a.CompareData(b) || a.GetChildCount() != b.GetChildCount())
        return false;
    for (int i = 0; i < a.GetChildCount(); ++i)
        if (!SameTree(a[i], b[i]))
            return false;
    return true;
}

// A sink that takes a fixed number of bytes and refuses the rest, as a full disk does.
class ShortSink : public ConfigData::Writer
{
public:
    explicit ShortSink(unsigned int room) : room(room) {}
    bool Write(const void *, unsigned int size, unsigned int count) override
    {
        unsigned int bytes = size * count;
        if (bytes > room)
            return false;
        room -= bytes;
        return true;
    }
    int GetEncoding() override { return File::ENCODING_ANSI; }

private:
    unsigned int room;
};

void Append(std::vector<unsigned char> & bytes, uint32_t word)
{
    for (int i = 0; i < 4; ++i)
        bytes.push_back(static_cast<unsigned char>(word >> (8 * i)));
}

// A node record up to its type byte.
std::vector<unsigned char> Record(const std::string & name, unsigned char type)
{
    std::vector<unsigned char> bytes;
    Append(bytes, static_cast<uint32_t>(name.size()));
    for (char character : name)
        bytes.push_back(static_cast<unsigned char>(character));
    bytes.push_back(type);
    return bytes;
}

// Reads the bytes, after the "CD" header, into a fresh node.
bool ReadBinary(const std::vector<unsigned char> & body, ConfigData & root)
{
    TempDir dir;
    std::vector<unsigned char> bytes(4 + body.size());
    std::memcpy(bytes.data(), "CD\1\1", 4);
    std::memcpy(bytes.data() + 4, body.data(), body.size());
    TestSupport::WriteBytes(dir / "t.cdb", bytes);
    return root.ReadBin((dir / "t.cdb").c_str());
}
} // namespace

TEST(ConfigWriter, DataLines)
{
    ConfigData root;
    EXPECT_EQ("", Text(root));
    root.New("a") << 5;
    EXPECT_EQ("a = 5;\r\n", Text(root));

    ConfigData lines;
    const int seven[] = {7};
    lines.New("a").SetIntArray(seven, 1);
    lines.New("e").SetIntArray(seven, 0);
    std::vector<int> twelve(12, 3);
    lines.New("b").SetIntArray(twelve.data(), 12);
    lines.New() << 2.0f;
    lines.New("q") << "0.5";
    lines.New("c", "x y");
    lines.New("d", "say \"hi\"");
    lines.New("f") << 100.0f;
    lines.New();
    EXPECT_EQ("a = (7);\r\n"
              "e = ();\r\n"
              "b = 3,3,3,3,3,3,3,3,3,3,3,3;//12\r\n"
              " = 2.0;\r\n"
              "q = \"0.5\";\r\n"
              "c = \"x y\";\r\n"
              "d = \"say \\\"hi\\\"\";\r\n"
              "f = 100.0;\r\n",
              Text(lines));
}

TEST(ConfigWriter, BlocksGetBlankLinesAndNestedIndents)
{
    ConfigData root;
    root.New("a") << 1;
    ConfigData & block = root.New("b", "v");
    block.New("c") << 2;
    block.New("d").New("e") << 3;
    root.New("f") << 4;
    root.New("g");
    EXPECT_EQ("a = 1;\r\n\r\nb(v)\r\n{\r\n  c = 2;\r\n\r\n  d\r\n  {\r\n    e = 3;\r\n  }\r\n}\r\n\r\n"
              "f = 4;\r\ng = ;\r\n",
              Text(root));
}

TEST(ConfigWriter, LongArraysWrapWithTheCommaLeftOfTheValues)
{
    ConfigData root;
    ConfigData & level = root.New("level");
    std::vector<int> values(30, 123456);
    level.New("list").SetIntArray(values.data(), 30);
    std::string text = Text(root);
    // "  list = " puts the first value at column 9: continuation lines start with the comma at 8.
    std::string first = "  list = 123456" + std::string(",123456") +
                        ",123456,123456,123456,123456,123456,123456,123456,"
                        "123456,123456,123456,123456\r\n";
    std::string second = std::string(8, ' ') +
                         ",123456,123456,123456,123456,123456,123456,123456,123456,123456,123456,"
                         "123456,123456,123456\r\n";
    EXPECT_NE(std::string::npos, text.find(first)) << text;
    EXPECT_NE(std::string::npos, text.find(second)) << text;
    EXPECT_NE(std::string::npos, text.find(";//30\r\n")) << text;
}

TEST(ConfigWriter, ByteArraysGoInLinesOf32AfterFourBlanks)
{
    ConfigData root;
    std::vector<unsigned char> bytes(40, 0xAB);
    root.New("bin").SetByteArray(bytes.data(), 40);
    root.New("one").SetByteArray(bytes.data(), 1);
    std::string line = "    " + std::string(64, 'x');
    for (size_t i = 4; i < line.size(); i += 2)
        line.replace(i, 2, "AB");
    EXPECT_EQ("bin = : \r\n" + line + "\r\n    " + std::string("ABABABABABABABAB") +
                  ";//40\r\n"
                  "one = (: \r\n    AB);\r\n",
              Text(root));
}

TEST(ConfigWriter, GoldenFilesOnEveryTarget)
{
    ConfigData root;
    BuildSample(root);
    PString ansi;
    PString wide;
    PString binary;
    ASSERT_TRUE(root.Write(ansi, File::ENCODING_ANSI));
    ASSERT_TRUE(root.Write(wide, File::ENCODING_UTF16));
    ASSERT_TRUE(root.WriteBin(binary));
    EXPECT_EQ(ReadBytes(DataFile("ConfigSample.txt")), Bytes(ansi));
    EXPECT_EQ(ReadBytes(DataFile("ConfigSample16.txt")), Bytes(wide));
    EXPECT_EQ(ReadBytes(DataFile("ConfigSample.cdb")), Bytes(binary));

    // The file sink writes the same bytes, and the binary form reads back to the same tree.
    TempDir dir;
    File file;
    ASSERT_EQ(File::RES_OK, file.Open((dir / "s.txt").c_str(), File::MODE_WRITE | File::MODE_CREATE));
    EXPECT_TRUE(root.Write(file));
    EXPECT_EQ(File::RES_OK, file.Close());
    EXPECT_EQ(ReadBytes(DataFile("ConfigSample.txt")), ReadBytes(dir / "s.txt"));
    ConfigData back;
    ASSERT_TRUE(back.ReadBin(DataFile("ConfigSample.cdb").c_str()));
    EXPECT_TRUE(SameTree(root, back));
    // A compressed file reads back through the same call.
    ASSERT_TRUE(root.WriteBin((dir / "c.cdb").c_str(), true));
    ConfigData expanded;
    ASSERT_TRUE(expanded.ReadBin((dir / "c.cdb").c_str()));
    EXPECT_TRUE(SameTree(root, expanded));
}

TEST(ConfigWriter, Utf16BinaryStringsAndText)
{
    ConfigData root;
    root.New("caf\xC3\xA9", "\xE2\x82\xAC");
    wchar_t probe[4];
    if (mbstowcs(probe, "\xC3\xA9", 4) != 1)
        GTEST_SKIP() << "the current locale does not convert UTF-8";
    PString binary;
    ASSERT_TRUE(root.WriteBin(binary, File::ENCODING_UTF16));
    std::vector<unsigned char> got = Bytes(binary);
    // The root's empty name, type 0, one child: "café" with type 3 and "€", no children.
    std::vector<unsigned char> want = {'C', 'D', 1, 1, 0,    0,    0,    0,    0, 1,   0, 0,
                                       0,   8,   0, 0, 0x40, 'c',  0,    'a',  0, 'f', 0, 0xE9,
                                       0,   3,   2, 0, 0,    0x40, 0xAC, 0x20, 0, 0,   0, 0};
    EXPECT_EQ(want, got);
    TempDir dir;
    TestSupport::WriteBytes(dir / "w.cdb", got);
    ConfigData back;
    ASSERT_TRUE(back.ReadBin((dir / "w.cdb").c_str()));
    EXPECT_TRUE(SameTree(root, back));
    PString text;
    ASSERT_TRUE(root.Write(text, File::ENCODING_UTF16));
    EXPECT_EQ(std::vector<unsigned char>({'c', 0,   'a', 0,    'f',  0,   0xE9, 0,    ' ', 0,    '=',
                                          0,   ' ', 0,   0xAC, 0x20, ';', 0,    '\r', 0,   '\n', 0}),
              Bytes(text));
}

TEST(ConfigWriter, FailedWritesReachTheCaller)
{
    ConfigData root;
    BuildSample(root);
    PString full;
    ASSERT_TRUE(root.Write(full));
    ShortSink text(full.Length() - 1);
    EXPECT_FALSE(root.Write(text));
    ShortSink binary(100);
    EXPECT_FALSE(root.WriteBin(binary));
    TempDir dir;
    EXPECT_FALSE(root.WriteBin((dir / "missing/x.cdb").c_str(), false));
}

TEST(ConfigBinary, RefusesBadHeadersAndTypes)
{
    TempDir dir;
    TestSupport::WriteBytes(dir / "bad.cdb", {'C', 'D', 1, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0});
    ConfigData root("keep");
    root << 5;
    EXPECT_FALSE(root.ReadBin((dir / "bad.cdb").c_str()));
    EXPECT_EQ(PString("keep"), root.GetName());
    EXPECT_EQ(5, static_cast<int>(root));
    EXPECT_FALSE(root.ReadBin((dir / "none.cdb").c_str()));

    std::vector<unsigned char> body = Record("", 0);
    Append(body, 2);
    std::vector<unsigned char> good = Record("a", 1);
    Append(good, 9);
    Append(good, 0);
    body.insert(body.end(), good.begin(), good.end());
    std::vector<unsigned char> bad = Record("b", 8);
    body.insert(body.end(), bad.begin(), bad.end());
    ConfigData read;
    EXPECT_FALSE(ReadBinary(body, read));
    // The child read before the bad one stays; the bad one is gone.
    ASSERT_EQ(1, read.GetChildCount());
    EXPECT_EQ(9, static_cast<int>(read("a")));
}

TEST(ConfigBinary, HostileCountsAndTruncatedRecordsFail)
{
    for (unsigned char type : {4, 5, 6, 7})
    {
        std::vector<unsigned char> body = Record("n", type);
        Append(body, 0x7FFFFFFF);
        Append(body, 1);
        ConfigData root;
        EXPECT_FALSE(ReadBinary(body, root)) << int(type);
        EXPECT_EQ(0, root.GetDataType());
    }
    // A string record that says 100 bytes and has 3; a string array whose second record breaks.
    std::vector<unsigned char> text = Record("s", 3);
    Append(text, 100);
    text.insert(text.end(), {'a', 'b', 'c'});
    ConfigData root;
    EXPECT_FALSE(ReadBinary(text, root));
    std::vector<unsigned char> strings = Record("l", 7);
    Append(strings, 2);
    Append(strings, 1);
    strings.push_back('x');
    Append(strings, 50);
    ConfigData list;
    EXPECT_FALSE(ReadBinary(strings, list));
    EXPECT_EQ(0, list.GetDataType());
    // A child count far beyond the data ends at the data without making the children first.
    std::vector<unsigned char> children = Record("", 0);
    Append(children, 0xFFFFFFFF);
    ConfigData many;
    EXPECT_FALSE(ReadBinary(children, many));
    EXPECT_EQ(0, many.GetChildCount());
}

TEST(ConfigBinary, DeepNestingIsRefusedWithoutExhaustingTheStack)
{
    std::vector<unsigned char> body;
    for (int level = 0; level < 100000; ++level)
    {
        std::vector<unsigned char> node = Record("d", 0);
        Append(node, 1);
        body.insert(body.end(), node.begin(), node.end());
    }
    ConfigData root;
    EXPECT_FALSE(ReadBinary(body, root));
    EXPECT_EQ(0, root.GetChildCount());

    // 500 levels, the root's included, go both ways; the writer refuses one more.
    ConfigData chain;
    ConfigData * deepest = &chain;
    for (int level = 1; level < 500; ++level)
        deepest = &deepest->New("d");
    TempDir dir;
    const std::string name = dir / "deep.cdb";
    ASSERT_TRUE(chain.WriteBin(name.c_str(), false));
    ConfigData back;
    ASSERT_TRUE(back.ReadBin(name.c_str()));
    EXPECT_TRUE(SameTree(chain, back));
    deepest->New("x");
    PString bytes;
    EXPECT_FALSE(chain.WriteBin(bytes));
}
