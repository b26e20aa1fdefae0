// Random trees written and read back: the text form through the parser, the binary form through
// its reader. The trees hold what quoting, escaping and the number forms must carry: names and
// strings with every class of character, every data type, special floats, duplicate names,
// nesting and arrays of up to 40 elements.
#include "ConfigData.h"
#include "ConfigParser.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <regex>
#include <string>
#include <utility>
#include <vector>

using Kiv::ConfigData;
using Kiv::PString;

namespace
{
const int treeCount = 2000;
const int maxDepth = 4;
const int maxArray = 40;

uint32_t Bits(float value)
{
    uint32_t bits;
    std::memcpy(&bits, &value, sizeof(bits));
    return bits;
}

float FromBits(uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, sizeof(value));
    return value;
}

// The NaNs the text names: the indefinite "-1.#IND" and the quiet "1.#QNAN" of either sign.
const uint32_t indefinite = 0xFFC00000u;
const uint32_t namedNans[] = {0x7FE00000u, 0xFFE00000u, indefinite};

// Makes random trees. With `forText` it leaves out exactly what the text form cannot carry:
// - arrays of no element, byte arrays of one element and unnamed byte arrays, whose written forms
//   ("()", "(: 0A)", ": 0A;") the grammar rejects, and the indefinite NaN inside an array, which
//   the grammar takes only with a ";" of its own;
// - blocks without a name or with data other than a string, and unnamed nodes without data,
//   which the writer writes in forms the grammar rejects, or not at all;
// - texts written bare that the scanner reads as a number ("-5", "+1.5", ".5e3") or as the ":"
//   that opens a byte array (":x");
// - floats that 8 significant digits do not carry or that are written without a point, and NaNs
//   other than the three the text names;
// - empty strings as data, which the text cannot tell from a null one.
class TreeMaker
{
public:
    TreeMaker(uint32_t seed, bool forText) : random(seed), forText(forText) {}

    void Fill(ConfigData & node, int depth)
    {
        const int count = 1 + Below(depth == 0 ? 10 : 6);
        std::vector<PString> names;
        for (int i = 0; i < count; ++i)
        {
            // Duplicate names are as common as in real files.
            const bool repeat = !names.empty() && Below(5) == 0;
            const PString name = repeat ? names[Below(static_cast<int>(names.size()))] : Name();
            names.push_back(name);
            AddChild(node, name, depth);
        }
    }

private:
    enum Kind
    {
        NONE,
        INT,
        FLOAT,
        STRING,
        BYTES,
        INTS,
        FLOATS,
        STRINGS,
        BLOCK,
        KINDS
    };

    int Below(int n) { return static_cast<int>(random() % static_cast<uint32_t>(n)); }

    void AddChild(ConfigData & parent, const PString & name, int depth)
    {
        Kind kind = static_cast<Kind>(Below(depth < maxDepth ? KINDS : BLOCK));
        if (forText && name.IsNull() && (kind == NONE || kind == BYTES || kind == BLOCK))
            kind = INTS;
        ConfigData & child = parent.New(name);
        if (kind == BLOCK)
        {
            if (Below(3) == 0)
                SetData(child, forText ? STRING : static_cast<Kind>(Below(BLOCK)));
            Fill(child, depth + 1);
        }
        else
            SetData(child, kind);
    }

    void SetData(ConfigData & node, Kind kind)
    {
        const int least = forText ? (kind == BYTES ? 2 : 1) : 0;
        const int count = least + Below(maxArray + 1 - least);
        switch (kind)
        {
        case INT:
            node.SetIntData(Int());
            break;
        case FLOAT:
            node.SetFloatData(Float(true));
            break;
        case STRING:
            node.SetPStringData(Text(false));
            break;
        case BYTES:
        {
            std::vector<unsigned char> bytes(count);
            for (unsigned char & byte : bytes)
                byte = static_cast<unsigned char>(random());
            node.SetByteArray(bytes.data(), count);
            break;
        }
        case INTS:
        {
            std::vector<int> ints(count);
            for (int & value : ints)
                value = Int();
            node.SetIntArray(ints.data(), count);
            break;
        }
        case FLOATS:
        {
            std::vector<float> floats(count);
            for (float & value : floats)
                value = Float(false);
            node.SetFloatArray(floats.data(), count);
            break;
        }
        case STRINGS:
        {
            std::vector<PString> strings;
            for (int i = 0; i < count; ++i)
                strings.push_back(Text(false));
            node.SetPStringArray(strings.data(), static_cast<int>(strings.size()));
            break;
        }
        default:
            break;
        }
    }

    int Int()
    {
        switch (Below(4))
        {
        case 0:
            return Below(2) ? INT32_MIN : INT32_MAX;
        case 1:
            return Below(21) - 10;
        default:
            return static_cast<int>(random());
        }
    }

    float Float(bool scalar)
    {
        for (;;)
        {
            float value;
            switch (Below(6))
            {
            case 0:
                value = static_cast<float>(Below(2001) - 1000) / 4; // whole and half numbers
                break;
            case 1:
                value = static_cast<float>(Below(1000000000)); // past 8 digits: exponent form
                break;
            case 2:
                value = FromBits(Below(2) ? 0x7F800000u : 0xFF800000u);
                break;
            case 3:
                value = FromBits(namedNans[Below(3)]);
                break;
            default:
                value = FromBits(static_cast<uint32_t>(random()));
                break;
            }
            if (!forText)
                return value;
            if (std::isnan(value) ? Carried(Bits(value), scalar) : Carried(value))
                return value;
        }
    }

    static bool Carried(uint32_t nanBits, bool scalar)
    {
        return (nanBits != indefinite || scalar) &&
               std::find(std::begin(namedNans), std::end(namedNans), nanBits) != std::end(namedNans);
    }

    // Eight significant digits must hold the value, and the text must have a point: the fixed
    // form of a value of eight integer digits has none (as the Windows runtime writes it) and
    // reads back as an integer.
    static bool Carried(float value)
    {
        if (std::isinf(value))
            return true;
        char text[32];
        snprintf(text, sizeof(text), "%.7e", value);
        if (std::atoi(std::strchr(text, 'e') + 1) == 7)
            return false;
        snprintf(text, sizeof(text), "%.8g", value);
        return Bits(std::strtof(text, nullptr)) == Bits(value);
    }

    PString Name()
    {
        if (Below(12) == 0)
            return Below(2) ? PString("") : PString();
        return Text(true);
    }

    // Texts from every class the quoting rules tell apart; empty ones only where allowed.
    PString Text(bool emptyAllowed)
    {
        static const char * const looksNumeric[] = {"1e5",   "08",       "0x1F",    "-0x10", "1.0f",
                                                    "0.5.5", "1.#INF00", "-1.#INF", "+7",    ".5",
                                                    "1.",    "-2.5e-3",  "version", "a:b"};
        static const char * const classes[] = {"abcxyzABCXYZ_",  // plain words
                                               "0123456789",     // digits, quoted when first
                                               " #/,;=(){}",     // quoted
                                               "\"\\`\b\t\n\r",  // escaped
                                               ":-.@+*!?%&'~^|", // left bare
                                               "\x01\x02\x1f\x7f", "\x80\xa0\xc3\xe9\xff"};
        for (;;)
        {
            std::string text;
            if (Below(8) == 0)
                text = looksNumeric[Below(sizeof(looksNumeric) / sizeof(*looksNumeric))];
            else
            {
                const int length = Below(10) == 0 ? 40 + Below(300) : Below(12);
                for (int i = 0; i < length; ++i)
                {
                    const char * set = classes[Below(Below(2) ? 1 : sizeof(classes) / sizeof(*classes))];
                    text += set[Below(static_cast<int>(std::strlen(set)))];
                }
            }
            if ((text.empty() && !emptyAllowed) || (forText && (ReadAsNumber(text) || text[0] == ':')))
                continue;
            return PString(text.c_str(), static_cast<unsigned int>(text.size()));
        }
    }

    // Texts the writer leaves bare (they start with neither a digit nor a character it quotes)
    // that the scanner nevertheless reads as a number.
    static bool ReadAsNumber(const std::string & text)
    {
        static const std::regex number("[+-]?([0-9]+|([0-9]+\\.[0-9]*|\\.[0-9]+)([eE][+-]?[0-9]+)?)");
        return !text.empty() && std::strchr("+-.", text[0]) != nullptr && std::regex_match(text, number);
    }

    std::mt19937 random;
    bool forText;
};

// Equal names (null and empty alike when `emptyIsNull`), data and children, recursively, below
// the roots; the first difference as a path.
std::string Difference(const ConfigData & a, const ConfigData & b, bool emptyIsNull, const std::string & path)
{
    // The roots' names are the file's and the caller's business.
    const bool sameName = path.empty() || a.GetName() == b.GetName() ||
                          (emptyIsNull && a.GetName().Length() == 0 && b.GetName().Length() == 0);
    if (!sameName)
        return path + ": name";
    if (!a.CompareData(b))
        return path + ": data of type " + std::to_string(a.GetDataType()) + " and " +
               std::to_string(b.GetDataType());
    if (a.GetChildCount() != b.GetChildCount())
        return path + ": " + std::to_string(a.GetChildCount()) + " children and " +
               std::to_string(b.GetChildCount());
    for (int i = 0; i < a.GetChildCount(); ++i)
    {
        std::string inner = Difference(a.Find(i), b.Find(i), emptyIsNull, path + "/" + std::to_string(i));
        if (!inner.empty())
            return inner;
    }
    return "";
}

std::string Bytes(const PString & text)
{
    return std::string(static_cast<const char *>(text) ? static_cast<const char *>(text) : "", text.Length());
}

// The text the parser's writer makes of a tree (which it only reads).
std::string TextOf(const ConfigData & root)
{
    Kiv::ConfigParser writer(const_cast<ConfigData *>(&root));
    PString text;
    EXPECT_TRUE(writer.SaveString(text, 0));
    return Bytes(text);
}
} // namespace

TEST(ConfigRoundTrip, TextReadsBackTheTreeItWasWrittenFrom)
{
    for (int seed = 0; seed < treeCount; ++seed)
    {
        ConfigData tree;
        TreeMaker(static_cast<uint32_t>(seed), true).Fill(tree, 0);
        const std::string text = TextOf(tree);
        Kiv::ConfigParser parser;
        const bool parsed = parser
                                .Parse("roundtrip.cfg", const_cast<char *>(text.data()),
                                       static_cast<unsigned int>(text.size()))
                                .Succeeded();
        ASSERT_TRUE(parsed) << "seed " << seed << ": " << parser.GetLastError() << "\n" << text;
        const ConfigData & back = *std::as_const(parser).GetConfig();
        ASSERT_EQ("", Difference(tree, back, false, "")) << "seed " << seed << "\n" << text;
        ASSERT_EQ(text, TextOf(back)) << "seed " << seed;
    }
}

// The binary form has no excluded shapes: every tree comes back, and its bytes are written again
// unchanged. It cannot tell an empty name from a null one.
TEST(ConfigRoundTrip, BinaryFormCarriesEveryTree)
{
    TestSupport::TempDir dir;
    const std::string file = dir / "tree.bin";
    for (int seed = 0; seed < treeCount; ++seed)
    {
        ConfigData tree;
        TreeMaker(static_cast<uint32_t>(seed), false).Fill(tree, 0);
        PString bytes;
        ASSERT_TRUE(tree.WriteBin(bytes));
        ASSERT_TRUE(tree.WriteBin(file.c_str(), false));
        ConfigData back;
        ASSERT_TRUE(back.ReadBin(file.c_str())) << "seed " << seed;
        ASSERT_EQ("", Difference(tree, back, true, "")) << "seed " << seed;
        PString again;
        ASSERT_TRUE(back.WriteBin(again));
        ASSERT_EQ(Bytes(bytes), Bytes(again)) << "seed " << seed;
    }
}
