// Random trees written and read back: the text form through the parser, the binary form through
// its reader. The trees hold what quoting, escaping and the number forms must carry: names and
// strings with every class of character, every data type, special floats, duplicate names,
// nesting and arrays of up to 40 elements.
#include "ConfigData.h"
#include "ConfigParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <utility>
#include <vector>

using Kiv::ConfigData;
using Kiv::PString;

namespace
{
const int treeCount = 2000;

// The NaNs the text names: "1.#QNAN" of either sign and the indefinite "-1.#IND".
const uint32_t nans[] = {0x7FE00000u, 0xFFE00000u, 0xFFC00000u};

// Random trees. For the text form it leaves out exactly what that form cannot carry:
// - arrays of no element, byte arrays of one element and unnamed byte arrays, whose written forms
//   ("()", "(: 0A)", ": 0A;") the grammar rejects, and the indefinite NaN inside an array, which
//   the grammar takes only with a ";" of its own;
// - blocks without a name or with data other than a string, and unnamed nodes without data,
//   which the writer writes in forms the grammar rejects, or not at all;
// - texts written bare that the scanner reads as a number ("-5", ".5e3") or as the lone ":" that
//   opens a byte array;
// - floats that 8 significant digits do not carry, or that are written without a point (the
//   fixed form of 8 integer digits has none and reads back as an integer), and other NaNs;
// - empty strings as data, which neither form tells from null ones.
class TreeMaker
{
public:
    TreeMaker(uint32_t seed, bool forText) : random(seed), forText(forText) {}

    // Duplicate names are as common as in real files.
    void Fill(ConfigData & node, int depth)
    {
        std::vector<PString> names;
        for (int i = 1 + Below(depth == 0 ? 10 : 6); i > 0; --i)
        {
            names.push_back(names.empty() || Below(5) != 0 ? Name() : names[Below(int(names.size()))]);
            int kind = Below(depth < 4 ? BLOCK + 1 : BLOCK);
            if (forText && names.back().IsNull() &&
                (kind == TYPE_NONE || kind == TYPE_BYTES || kind == BLOCK))
                kind = TYPE_INTS;
            ConfigData & child = node.New(names.back());
            if (kind != BLOCK)
                SetData(child, kind);
            else
            {
                if (Below(3) == 0)
                    SetData(child, forText ? TYPE_STRING : Below(BLOCK));
                Fill(child, depth + 1);
            }
        }
    }

private:
    enum
    {
        TYPE_NONE,
        TYPE_INT,
        TYPE_FLOAT,
        TYPE_STRING,
        TYPE_BYTES,
        TYPE_INTS,
        TYPE_FLOATS,
        TYPE_STRINGS,
        BLOCK
    };

    int Below(int n) { return static_cast<int>(random() % static_cast<uint32_t>(n)); }

    template <typename T, typename Make>
    std::vector<T> Many(int count, Make make)
    {
        std::vector<T> items;
        for (int i = 0; i < count; ++i)
            items.push_back(make());
        return items;
    }

    void SetData(ConfigData & node, int kind)
    {
        const int least = forText ? (kind == TYPE_BYTES ? 2 : 1) : 0;
        const int count = least + Below(41 - least);
        if (kind == TYPE_INT)
            node.SetIntData(Int());
        else if (kind == TYPE_FLOAT)
            node.SetFloatData(Float(true));
        else if (kind == TYPE_STRING)
            node.SetPStringData(Text(false));
        else if (kind == TYPE_BYTES)
            node.SetByteArray(
                Many<unsigned char>(count, [this] { return static_cast<unsigned char>(random()); }).data(),
                count);
        else if (kind == TYPE_INTS)
            node.SetIntArray(Many<int>(count, [this] { return Int(); }).data(), count);
        else if (kind == TYPE_FLOATS)
            node.SetFloatArray(Many<float>(count, [this] { return Float(false); }).data(), count);
        else if (kind == TYPE_STRINGS)
            node.SetPStringArray(Many<PString>(count, [this] { return Text(false); }).data(), count);
    }

    int Int()
    {
        const int choice = Below(4);
        return choice == 0   ? (Below(2) ? INT32_MIN : INT32_MAX)
               : choice == 1 ? Below(21) - 10
                             : static_cast<int>(random());
    }

    // Halves and whole numbers ("2.0"), values past 8 digits (exponent form), infinities, the
    // named NaNs and any bit pattern.
    float Float(bool scalar)
    {
        for (;;)
        {
            const int choice = Below(6);
            const uint32_t bits = choice == 2   ? (Below(2) ? 0x7F800000u : 0xFF800000u)
                                  : choice == 3 ? nans[Below(scalar ? 3 : 2)]
                                                : static_cast<uint32_t>(random());
            float value;
            std::memcpy(&value, &bits, sizeof(value));
            if (choice < 2)
                value = choice == 0 ? static_cast<float>(Below(2001) - 1000) / 4
                                    : static_cast<float>(Below(1000000000));
            if (!forText || choice == 2 || choice == 3 || (!std::isnan(value) && Carried(value)))
                return value;
        }
    }

    static bool Carried(float value)
    {
        char text[32];
        snprintf(text, sizeof(text), "%.7e", value);
        if (std::isinf(value) || std::atoi(std::strchr(text, 'e') + 1) == 7)
            return std::isinf(value);
        snprintf(text, sizeof(text), "%.8g", value);
        return std::strtof(text, nullptr) == value &&
               std::signbit(std::strtof(text, nullptr)) == std::signbit(value);
    }

    PString Name() { return Below(12) == 0 ? (Below(2) ? PString("") : PString()) : Text(true); }

    PString Text(bool emptyAllowed)
    {
        static const char * const numeric[] = {"1e5",   "08",       "0x1F",    "-0x10", "1.0f",
                                               "0.5.5", "1.#INF00", "-1.#INF", "+7",    ".5",
                                               "1.",    "-2.5e-3",  "version", "a:b"};
        static const char * const classes[] = {"abcxyzABCXYZ_",       "0123456789",     " #/,;=(){}",
                                               "\"\\`\b\t\n\r",       ":-.@+*!?%&'~^|", "\x01\x1f\x7f",
                                               "\x80\xa0\xc3\xe9\xff"};
        for (;;)
        {
            std::string text = Below(8) == 0 ? numeric[Below(sizeof(numeric) / sizeof(*numeric))] : "";
            for (int i = text.empty() ? (Below(10) == 0 ? 40 + Below(300) : Below(12)) : 0; i > 0; --i)
            {
                const char * set = classes[Below(2) ? 0 : Below(sizeof(classes) / sizeof(*classes))];
                text += set[Below(static_cast<int>(std::strlen(set)))];
            }
            const bool bare = !text.empty() && std::strchr("+-.", text[0]) != nullptr;
            if (text.empty() ? !emptyAllowed : forText && ((bare && IsNumber(text.c_str())) || text == ":"))
                continue;
            return PString(text.c_str(), static_cast<unsigned int>(text.size()));
        }
    }

    // The scanner's numbers: a sign, then digits, or digits with a point and an optional exponent.
    static bool IsNumber(const char * p)
    {
        p += *p == '+' || *p == '-';
        const char * digits = p;
        p += std::strspn(p, "0123456789");
        if (*p != '.')
            return *p == 0 && p != digits;
        const char * fraction = ++p;
        p += std::strspn(p, "0123456789");
        if (p == fraction && fraction == digits + 1)
            return false;
        if (*p == 'e' || *p == 'E')
        {
            p += 1 + (p[1] == '+' || p[1] == '-');
            const size_t exponent = std::strspn(p, "0123456789");
            p += exponent;
            return exponent != 0 && *p == 0;
        }
        return *p == 0;
    }

    std::mt19937 random;
    bool forText;
};

// The first difference below the roots as a path: names (null and empty alike when `emptyIsNull`),
// data, children.
std::string Difference(const ConfigData & a, const ConfigData & b, bool emptyIsNull, const std::string & path)
{
    const bool sameName = path.empty() || a.GetName() == b.GetName() ||
                          (emptyIsNull && a.GetName().Length() == 0 && b.GetName().Length() == 0);
    if (!sameName || !a.CompareData(b) || a.GetChildCount() != b.GetChildCount())
        return path + ": type " + std::to_string(a.GetDataType()) + " and " + std::to_string(b.GetDataType());
    for (int i = 0; i < a.GetChildCount(); ++i)
    {
        const std::string inner =
            Difference(a.Find(i), b.Find(i), emptyIsNull, path + "/" + std::to_string(i));
        if (!inner.empty())
            return inner;
    }
    return "";
}

std::string Bytes(const PString & text)
{
    return text.Length() != 0 ? std::string(static_cast<const char *>(text), text.Length()) : "";
}

// What the parser's writer makes of a tree (which it only reads).
std::string TextOf(const ConfigData & root)
{
    Kiv::ConfigParser writer(const_cast<ConfigData *>(&root));
    PString text;
    EXPECT_TRUE(writer.SaveString(text));
    return Bytes(text);
}
} // namespace

TEST(ConfigRoundTrip, TextReadsBackTheTreeItWasWrittenFrom)
{
    for (int seed = 0; seed < treeCount; ++seed)
    {
        ConfigData tree;
        TreeMaker(static_cast<uint32_t>(seed), true).Fill(tree, 0);
        std::string text = TextOf(tree);
        Kiv::ConfigParser parser;
        ASSERT_TRUE(
            parser.Parse("roundtrip.cfg", &text[0], static_cast<unsigned int>(text.size())).Succeeded())
            << "seed " << seed << ": " << parser.GetLastError() << "\n"
            << text;
        const ConfigData & back = *std::as_const(parser).GetConfig();
        ASSERT_EQ("", Difference(tree, back, false, "")) << "seed " << seed << "\n" << text;
        ASSERT_EQ(text, TextOf(back)) << "seed " << seed;
    }
}

// The binary form carries every tree, and its bytes are written again unchanged.
TEST(ConfigRoundTrip, BinaryFormCarriesEveryTree)
{
    TestSupport::TempDir dir;
    const std::string file = dir / "tree.bin";
    for (int seed = 0; seed < treeCount; ++seed)
    {
        ConfigData tree;
        TreeMaker(static_cast<uint32_t>(seed), false).Fill(tree, 0);
        PString bytes, again;
        ASSERT_TRUE(tree.WriteBin(bytes) && tree.WriteBin(file.c_str(), false));
        ConfigData back;
        ASSERT_TRUE(back.ReadBin(file.c_str())) << "seed " << seed;
        ASSERT_EQ("", Difference(tree, back, true, "")) << "seed " << seed;
        ASSERT_TRUE(back.WriteBin(again));
        ASSERT_EQ(Bytes(bytes), Bytes(again)) << "seed " << seed;
    }
}
