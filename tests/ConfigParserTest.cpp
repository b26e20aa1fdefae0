#include "ConfigParser.h"
#include "ConfigData.h"
#include "File.h"
#include "MemoryFile.h"
#include "PString.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

using Kiv::ConfigData;
using Kiv::ConfigParser;
using Kiv::PString;
using TestSupport::TempDir;

namespace
{
// A parser over one text, named "t.cfg" in messages.
struct Text
{
    explicit Text(const std::string & body, bool header = true)
    {
        source = header ? "version 1.0\n" + body : body;
        result = parser.Parse("t.cfg", source.data(), static_cast<unsigned>(source.size())).Value();
    }
    const ConfigData & Root() const { return *parser.GetConfig(); }
    const ConfigData & Node(const char * name) const { return Root().Find(PString(name)); }
    std::string Error() const
    {
        const char * text = parser.GetLastError();
        return text != nullptr ? text : "";
    }

    std::string source;
    ConfigParser parser;
    int result = -1;
};

uint32_t FloatBits(float value)
{
    uint32_t bits = 0;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

std::vector<std::string> Strings(const ConfigData & node)
{
    std::vector<std::string> texts;
    for (int i = 0; i < node.GetArrayCount(); ++i)
        texts.emplace_back(node.GetPStringArray()[i]);
    return texts;
}

// The root a parser keeps: the const form leaves it to the parser.
const ConfigData & Tree(const ConfigParser & parser)
{
    return *parser.GetConfig();
}

// The same names, data and children below two roots.
bool SameTree(const ConfigData & a, const ConfigData & b)
{
    if (a.GetChildCount() != b.GetChildCount())
        return false;
    for (int i = 0; i < a.GetChildCount(); ++i)
        if (a[i].GetName() != b[i].GetName() || a[i].GetDataType() != b[i].GetDataType() ||
            !a[i].CompareData(b[i]) || !SameTree(a[i], b[i]))
            return false;
    return true;
}

std::string Nest(int depth)
{
    std::string text;
    for (int i = 0; i < depth; ++i)
        text += "a{";
    return text + "x=1;" + std::string(static_cast<size_t>(depth), '}');
}
} // namespace

TEST(ConfigParserTest, NumbersConvertAsTheRuntimeReadsThem)
{
    Text text("a = 1; h = 0x1F; o = 010; z = 08; big = 4294967296; low = -2147483649; p = +5;\n"
              "f = 1.5; e = 1.5e-3; half = .5; one = 1.; huge = 1.0e39; tiny = 1.0e-999;");
    ASSERT_EQ(text.result, 0) << text.Error();
    EXPECT_EQ(text.Node("a").GetIntData(), 1);
    EXPECT_EQ(text.Node("h").GetIntData(), 31);
    EXPECT_EQ(text.Node("o").GetIntData(), 8);
    // strtol stops at the 8, which is no octal digit.
    EXPECT_EQ(text.Node("z").GetIntData(), 0);
    // A long is 32 bits on the engine's platform: the value saturates on every target.
    EXPECT_EQ(text.Node("big").GetIntData(), INT32_MAX);
    EXPECT_EQ(text.Node("low").GetIntData(), INT32_MIN);
    EXPECT_EQ(text.Node("p").GetIntData(), 5);
    EXPECT_EQ(text.Node("f").GetDataType(), ConfigData::TYPE_FLOAT);
    EXPECT_FLOAT_EQ(text.Node("f").GetFloatData(), 1.5f);
    EXPECT_FLOAT_EQ(text.Node("e").GetFloatData(), 1.5e-3f);
    EXPECT_FLOAT_EQ(text.Node("half").GetFloatData(), 0.5f);
    EXPECT_FLOAT_EQ(text.Node("one").GetFloatData(), 1.0f);
    EXPECT_EQ(FloatBits(text.Node("huge").GetFloatData()), 0x7F800000u);
    EXPECT_EQ(FloatBits(text.Node("tiny").GetFloatData()), 0u);
}

TEST(ConfigParserTest, RunsThatOnlyBeginLikeNumbersAreWords)
{
    Text text("a = 1e5; b = -0x10; c = 1.0f; d = 0.5.5; e = 1.#INF00; f = 0X10; g = version;");
    ASSERT_EQ(text.result, 0) << text.Error();
    for (const char * name : {"a", "b", "c", "d", "e", "f", "g"})
        EXPECT_EQ(text.Node(name).GetDataType(), ConfigData::TYPE_STRING) << name;
    EXPECT_STREQ(text.Node("a"), "1e5");
    EXPECT_STREQ(text.Node("e"), "1.#INF00");
}

TEST(ConfigParserTest, SpecialFloatsHaveTheirOwnBits)
{
    Text text(
        "i = 1.#INF; ni = -1.#INF; q = 1.#QNAN; nq = -1.#QNAN; d = 1.#IND; nd = -1.#IND; pi = +1.#INF;");
    ASSERT_EQ(text.result, 0) << text.Error();
    EXPECT_EQ(FloatBits(text.Node("i").GetFloatData()), 0x7F800000u);
    EXPECT_EQ(FloatBits(text.Node("ni").GetFloatData()), 0xFF800000u);
    EXPECT_EQ(FloatBits(text.Node("q").GetFloatData()), 0x7FE00000u);
    EXPECT_EQ(FloatBits(text.Node("nq").GetFloatData()), 0xFFE00000u);
    EXPECT_EQ(FloatBits(text.Node("d").GetFloatData()), 0x7FC00000u);
    EXPECT_EQ(FloatBits(text.Node("nd").GetFloatData()), 0xFFC00000u);
    EXPECT_EQ(FloatBits(text.Node("pi").GetFloatData()), 0x7F800000u);
}

TEST(ConfigParserTest, StringsDecodeEscapesAndJoinOnlyAsAWholeValue)
{
    Text text("e = \"t\\tr\\rn\\nb\\b q\\\" s\\\\ k\\` x\\q\";\n"
              "b = `a \\` \"b\"`;\n"
              "j = \"x\" \"y\";\n"
              "j3 = \"\\n\" \"\\t\" plain \"a\\\\\";\n"
              "m = \"two\nlines\";\n"
              "w = a:b/c#d@e`f;\n"
              "c = x/*y*/;\n"
              "s = ;\n"
              "q = \"\";");
    ASSERT_EQ(text.result, 0) << text.Error();
    EXPECT_STREQ(text.Node("e"), "t\tr\rn\nb\b q\" s\\ k` x\\q");
    EXPECT_STREQ(text.Node("b"), "a ` \"b\"");
    EXPECT_STREQ(text.Node("j"), "xy");
    EXPECT_STREQ(text.Node("j3"), "\n\tplaina\\");
    EXPECT_STREQ(text.Node("m"), "two\nlines");
    EXPECT_STREQ(text.Node("w"), "a:b/c#d@e`f");
    EXPECT_STREQ(text.Node("c"), "x/*y*/");
    // An empty value, like no value, leaves the node without data.
    EXPECT_EQ(text.Node("s").GetDataType(), ConfigData::TYPE_NONE);
    EXPECT_EQ(text.Node("q").GetDataType(), ConfigData::TYPE_NONE);
    EXPECT_EQ(text.Root().GetChildCount(), 9);

    EXPECT_EQ(Text("a = \"x\" \"y\", z;").result, 3);
    EXPECT_EQ(Text("a = x, \"y\" \"z\";").result, 3);
}

TEST(ConfigParserTest, ListsTakeTheirTypeFromTheFirstDifference)
{
    Text text("f = 1, 2.5; s = 1, x; one = (7); p = (1, 2); pp = ((3));\n"
              "ifs = 1, 2.5, \" 3.5e1x\"; fi = 1.5, 2; sf = x, 1.5, 2; fs = 1.5, x;\n"
              "hex = 1.5, 2, \" 0x10\", inf; sp = x, 1.#INF, -1.#IND;, 1.#QNAN;");
    ASSERT_EQ(text.result, 0) << text.Error();
    const ConfigData & f = text.Node("f");
    ASSERT_EQ(f.GetDataType(), ConfigData::TYPE_FLOATARRAY);
    EXPECT_EQ(f.GetArrayCount(), 2);
    EXPECT_FLOAT_EQ(f.GetFloatArray()[1], 2.5f);
    EXPECT_EQ(Strings(text.Node("s")), (std::vector<std::string>{"1", "x"}));
    ASSERT_EQ(text.Node("one").GetDataType(), ConfigData::TYPE_INTARRAY);
    EXPECT_EQ(text.Node("one").GetArrayCount(), 1);
    EXPECT_EQ(text.Node("one").GetIntArray()[0], 7);
    EXPECT_EQ(text.Node("p").GetArrayCount(), 2);
    EXPECT_EQ(text.Node("pp").GetIntArray()[0], 3);
    // Integer, float, string: the float decides, and the string is read as a number.
    const ConfigData & ifs = text.Node("ifs");
    ASSERT_EQ(ifs.GetDataType(), ConfigData::TYPE_FLOATARRAY);
    EXPECT_FLOAT_EQ(ifs.GetFloatArray()[2], 35.0f);
    EXPECT_EQ(text.Node("fi").GetDataType(), ConfigData::TYPE_FLOATARRAY);
    EXPECT_EQ(Strings(text.Node("sf")), (std::vector<std::string>{"x", "1.500000", "2"}));
    EXPECT_EQ(Strings(text.Node("fs")), (std::vector<std::string>{"1.500000", "x"}));
    // Neither hexadecimal nor named floats: such text reads as far as its leading 0, or as nothing.
    EXPECT_EQ(text.Node("hex").GetFloatArray()[2], 0.0f);
    EXPECT_EQ(text.Node("hex").GetFloatArray()[3], 0.0f);
    EXPECT_EQ(Strings(text.Node("sp")), (std::vector<std::string>{"x", "1.#INF00", "-1.#IND00", "1.#QNAN0"}));
}

TEST(ConfigParserTest, AnIndefiniteInAListCarriesItsOwnSemicolon)
{
    Text after("a = 1,-1.#IND;;");
    ASSERT_EQ(after.result, 0) << after.Error();
    ASSERT_EQ(after.Node("a").GetArrayCount(), 2);
    EXPECT_EQ(FloatBits(after.Node("a").GetFloatArray()[1]), 0xFFC00000u);
    EXPECT_EQ(Text("a = -1.#IND;,1;").result, 0);
    EXPECT_EQ(Text("a = 1,-1.#IND;").result, 3);
}

TEST(ConfigParserTest, ByteArraysReadHexPairsOverLines)
{
    Text text("b = : 00 0a\r\n  FF // note\n  7f;\nc = :\n0A0B;\nd = : ;\ne = :0A0B;");
    ASSERT_EQ(text.result, 0) << text.Error();
    const ConfigData & b = text.Node("b");
    ASSERT_EQ(b.GetDataType(), ConfigData::TYPE_BYTEARRAY);
    ASSERT_EQ(b.GetArrayCount(), 4);
    EXPECT_EQ(std::vector<unsigned char>(b.GetByteArray(), b.GetByteArray() + 4),
              (std::vector<unsigned char>{0x00, 0x0A, 0xFF, 0x7F}));
    EXPECT_EQ(text.Node("c").GetArrayCount(), 2);
    EXPECT_EQ(text.Node("d").GetArrayCount(), 0);
    // A colon that runs on into a word is part of the word.
    EXPECT_STREQ(text.Node("e"), ":0A0B");

    for (const char * bad : {"b = : 0G;", "b = : 0A1;", "b = : 0 A;", "b = : 0A /* c */;", "b = : 0A",
                             ": 0A;", "= : 0A;", "b = (: 0A);"})
        EXPECT_EQ(Text(bad).result, 3) << bad;
}

TEST(ConfigParserTest, BlocksNestAndMayHoldOneString)
{
    Text text("b { c = 1; d { e = x; } }\nv(\"t\") {}\nw(t) { c = 2; }\nempty {}");
    ASSERT_EQ(text.result, 0) << text.Error();
    const ConfigData & b = text.Node("b");
    EXPECT_EQ(b.GetChildCount(), 2);
    EXPECT_STREQ(b.Find(PString("d")).Find(PString("e")), "x");
    EXPECT_STREQ(text.Node("v"), "t");
    EXPECT_EQ(text.Node("v").GetChildCount(), 0);
    EXPECT_EQ(text.Node("w").Find(PString("c")).GetIntData(), 2);
    EXPECT_FALSE(text.Node("empty").HasChildren());
    EXPECT_EQ(text.Root().GetName(), PString("t.cfg"));

    EXPECT_EQ(Text("b(1) {}").result, 3);
    EXPECT_EQ(Text("b(x y) {}").result, 3);
}

TEST(ConfigParserTest, UnnamedNodesAndTheirLimits)
{
    Text text("7; = 8; x; 1, 2; \"\" = 3;");
    ASSERT_EQ(text.result, 0) << text.Error();
    ASSERT_EQ(text.Root().GetChildCount(), 5);
    EXPECT_TRUE(text.Root()[0].GetName().IsNull());
    EXPECT_EQ(text.Root()[1].GetIntData(), 8);
    EXPECT_STREQ(text.Root()[2], "x");
    EXPECT_EQ(text.Root()[3].GetDataType(), ConfigData::TYPE_INTARRAY);
    EXPECT_FALSE(text.Root()[4].GetName().IsNull());
    EXPECT_EQ(text.Root()[4].GetName().Length(), 0u);

    for (const char * bad : {"1 = 2;", "a = 1;;", "a = ;;", "a = 1 b = 2;", "a = b = 1;", "a;;", "a = \\x;"})
        EXPECT_EQ(Text(bad).result, 3) << bad;
}

TEST(ConfigParserTest, HeaderAndComments)
{
    Text text("/* a\nb */ # c\n// d\nversion 2.5 // e\na = 1; /* f */ # g", false);
    ASSERT_EQ(text.result, 0) << text.Error();
    EXPECT_FLOAT_EQ(text.parser.GetVersion(), 2.5f);
    EXPECT_EQ(text.Node("a").GetIntData(), 1);

    for (const char * bad :
         {"", "a = 1;", "version", "version 1", "version 1.0 version 2.0 a = 1;", "x version 1.0 a = 1;"})
        EXPECT_EQ(Text(bad, false).result, 3) << bad;
    EXPECT_EQ(Text("a = 1; version 2.0").result, 3);
}

TEST(ConfigParserTest, MessagesNameTheFileLineAndToken)
{
    Text missing("a = 1\n\nb = 2;");
    EXPECT_EQ(missing.result, 3);
    EXPECT_EQ(missing.Error(), "t.cfg(4): Syntax error at b.");
    // The nodes read before the error stay in the tree.
    Text partial("a = 1;\n\"multi\nline\" = 2;\n b = {");
    EXPECT_EQ(partial.Error(), "t.cfg(5): Syntax error at {.");
    EXPECT_EQ(partial.Root().GetChildCount(), 2);

    EXPECT_EQ(Text("a = 1; b = 2").Error(), "t.cfg(2): Syntax error at end of file.");
    EXPECT_EQ(Text("a = \"open\n\n").Error(), "t.cfg(4): Syntax error.");
    EXPECT_EQ(Text("a = 1; /* open\n").Error(), "t.cfg(3): Syntax error.");
    EXPECT_EQ(Text("", false).Error(), "t.cfg(1): Syntax error at end of file.");
    EXPECT_EQ(Text("\n\nnope", false).Error(), "t.cfg(3): Syntax error.");
    EXPECT_EQ(Text("a = b\\c;").Error(), "t.cfg(2): Syntax error at \\.");
    EXPECT_EQ(Text(std::string("a = 1;\0", 7)).result, 3);

    const std::string longName(3000, 'n');
    Text tooLong("a = 1 " + longName + ";");
    EXPECT_EQ(tooLong.result, 3);
    EXPECT_LE(tooLong.Error().size(), 1024u);
    EXPECT_EQ(tooLong.Error().compare(0, 25, "t.cfg(2): Syntax error at"), 0);

    ConfigParser file;
    EXPECT_EQ(file.Parse("no/such/file.cfg").Value(), ConfigParser::RES_FILE_OPEN_ERROR);
    EXPECT_STREQ(file.GetLastError(), "no/such/file.cfg: Unable to open file");
    EXPECT_EQ(file.Parse("x", nullptr, 4).Value(), ConfigParser::RES_INVALID_PARAMETER);
    EXPECT_STREQ(ConfigParser::Result(ConfigParser::RES_FILE_FORMAT_ERROR).Message(),
                 "Unexpected file format");
}

// Of the parse stack's 500 entries, two go to the bottom and the header, two to every open block
// and four to the innermost node; a stack that fills up is an error, so 246 levels fit.
TEST(ConfigParserTest, NestingStopsCleanlyAtTheStackLimit)
{
    Text deepest(Nest(246));
    ASSERT_EQ(deepest.result, 0) << deepest.Error();
    const ConfigData * node = &deepest.Root();
    for (int depth = 0; depth < 246; ++depth)
        node = &node->Find(PString("a"));
    EXPECT_EQ(node->Find(PString("x")).GetIntData(), 1);

    Text tooDeep(Nest(247));
    EXPECT_EQ(tooDeep.result, 3);
    EXPECT_EQ(tooDeep.Error(), "t.cfg(2): Syntax error at ;.");
    EXPECT_EQ(Text(std::string(100000, '{')).result, 3);
    EXPECT_EQ(Text(Nest(5000)).result, 3);
}

TEST(ConfigParserTest, SavedTextParsesToTheSameTree)
{
    const std::string source =
        "version 1.5\n"
        "i = 42; n = -7; f = 1.5; e = 1.5e-3; inf = -1.#INF; q = 1.#QNAN; d = -1.#IND;\n"
        "s = \"a b\"; w = word; esc = \"t\\tq\\\"b\\\\k\\`n\\nr\\rb\\b\"; digit = \"1x\";\n"
        "j = \"x\" y; empty = ; \"\" = 3; = 9; bare; 1, 2;\n"
        "ints = 1, 2, 3; floats = (1.5, 2); strs = a, \"b c\", 3; one = (7); sone = (\"#\");\n"
        "long = 1,2,3,4,5,6,7,8,9,10,11,12;\n"
        "bytes = : 00 01 FE ff\n 0A;\n"
        "big = : 000102030405060708090A0B0C0D0E0F101112131415161718191A1B1C1D1E1F"
        "2021222324252627;\n"
        "block { inner = 1; deeper { x = y; } }\n"
        "valued(\"text\") { c = 1; } emptyblock {} dup = 1; dup = 2;\n";
    ConfigParser first;
    ASSERT_EQ(
        first.Parse("a", const_cast<char *>(source.data()), static_cast<unsigned>(source.size())).Value(), 0)
        << first.GetLastError();

    PString saved;
    ASSERT_TRUE(first.SaveString(saved));
    ASSERT_EQ(std::string(saved).compare(0, 14, "version 1.50\r\n"), 0);
    ConfigParser second;
    ASSERT_EQ(second.Parse("a", const_cast<char *>(static_cast<const char *>(saved)), saved.Length()).Value(),
              0)
        << second.GetLastError() << "\n"
        << saved;
    EXPECT_TRUE(SameTree(Tree(first), Tree(second))) << saved;

    // Through a UTF-16 file, byte-order mark first.
    TempDir folder;
    const std::string name = folder / "wide.cfg";
    ASSERT_EQ(first.Save(name.c_str(), false, Kiv::File::ENCODING_UTF16).Value(), 0);
    const std::vector<unsigned char> bytes = TestSupport::ReadBytes(name);
    ASSERT_GE(bytes.size(), 6u);
    EXPECT_EQ(std::vector<unsigned char>(bytes.begin(), bytes.begin() + 6),
              (std::vector<unsigned char>{0xFF, 0xFE, 'v', 0, 'e', 0}));
    ConfigParser third;
    ASSERT_EQ(third.Parse(name.c_str()).Value(), 0) << third.GetLastError();
    EXPECT_TRUE(SameTree(Tree(first), Tree(third)));
    EXPECT_EQ(third.GetFileName(), PString(name.c_str()));
}

TEST(ConfigParserTest, RootOwnership)
{
    ConfigParser parser;
    const std::string text = "version 1.0 a = 1;";
    ASSERT_EQ(
        parser.Parse(nullptr, const_cast<char *>(text.data()), static_cast<unsigned>(text.size())).Value(),
        0);
    ConfigData * root = parser.GetConfig();
    ConfigParser copy(parser);
    EXPECT_EQ(copy.GetConfig(), root);
    // A new parse replaces the root without deleting the one handed out.
    ASSERT_EQ(
        parser.Parse(nullptr, const_cast<char *>(text.data()), static_cast<unsigned>(text.size())).Value(),
        0);
    EXPECT_EQ(Tree(parser).Find(PString("a")).GetIntData(), 1);
    EXPECT_EQ(root->Find(PString("a")).GetIntData(), 1);
    delete root;

    ConfigData tree;
    tree.New(PString("k")) << 5;
    ConfigParser writer(&tree);
    writer.SetVersion(2.0f);
    PString out;
    ASSERT_TRUE(writer.SaveString(out));
    EXPECT_STREQ(out, "version 2.00\r\nk = 5;\r\n");
}
