#include "Kiv.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <string>

using Kiv::ConfigData;
using Kiv::PString;

namespace
{
float FloatFromBits(uint32_t bits)
{
    float value;
    std::memcpy(&value, &bits, 4);
    return value;
}

std::string FloatText(float value)
{
    char text[ConfigData::FloatTextSize];
    int length = ConfigData::FloatText(value, text);
    EXPECT_EQ(static_cast<size_t>(length), std::strlen(text));
    return text;
}

int Ints(const ConfigData & node, int index)
{
    return node.GetIntArray()[index];
}
} // namespace

TEST(ConfigData, FailedLookupsChainToTheNullNode)
{
    ConfigData root;
    EXPECT_FALSE(root.Find("a"));
    EXPECT_EQ(&ConfigData::Null(), &root.Find("a").Find("b")("c", 3)[7]);
    root.New("a") << 1;
    EXPECT_TRUE(root("a"));
    EXPECT_FALSE(root("a", 1));
    EXPECT_FALSE(root[-1]);
    EXPECT_FALSE(root[1]);
    int kept = 9;
    root("x") >> kept;
    EXPECT_EQ(9, kept);
    Kiv::AnsiString text("old");
    EXPECT_FALSE(root("x").GetAnsi(text));
    EXPECT_EQ(0, root("x").Count("a"));
    EXPECT_EQ(nullptr, root("x").Extract("a", 0));

    // Writes through a failed lookup must not reach every later failed lookup.
    root("x") << 5;
    root("x")("y").New("z") << 1;
    root("x") = root;
    EXPECT_FALSE(root("x").SetAnsi("t"));
    EXPECT_EQ(ConfigData::TYPE_NONE, root("q").GetDataType());
    EXPECT_EQ(0, root("q").GetChildCount());
    EXPECT_FALSE(root("q")("z"));
}

TEST(ConfigData, ReplaceRemoveAndExtractCountMatchesInOrder)
{
    ConfigData root;
    ConfigData & first = root.New("a");
    root.New("b");
    ConfigData & second = root.New("a");
    EXPECT_EQ(&first, &root.Replace("a", 0));
    EXPECT_EQ(&second, &root.Replace("a", 1));
    ConfigData & appended = root.Replace("a", 3);
    EXPECT_EQ(4, root.Count("a"));
    EXPECT_EQ(&appended, &root("a", 3));
    EXPECT_EQ(5, root.GetChildCount());
    root.Replace("x", 2);
    EXPECT_EQ(3, root.Count("x"));

    ConfigData values;
    values.New("k", "one");
    values.New("k", "two");
    ConfigData & added = values.Replace("k", "two", 1);
    EXPECT_EQ(3, values.GetChildCount());
    EXPECT_EQ(&added, &values("k", 2));
    EXPECT_EQ(&values("k", 1), &values("k", PString("two")));

    EXPECT_FALSE(values.Remove("k", "two", 2));
    EXPECT_TRUE(values.Remove("k", "two", 0));
    EXPECT_EQ(&added, &values("k", 1));
    ConfigData like("k", "two");
    EXPECT_TRUE(values.Remove(like, 0));
    EXPECT_FALSE(values.Remove(ConfigData::Null(), 0));
    EXPECT_EQ(1, values.GetChildCount());

    ConfigData * taken = root.Extract("a", 1);
    ASSERT_EQ(&second, taken);
    EXPECT_EQ(3, root.Count("a"));
    delete taken;
    root.RemoveAll("a");
    EXPECT_EQ(0, root.Count("a"));
    EXPECT_EQ(4, root.GetChildCount());
    EXPECT_TRUE(root.Remove("x", 2));
    EXPECT_FALSE(root.Remove("x", 2));
}

TEST(ConfigData, ChildrenSpanManyBlocks)
{
    ConfigData root;
    for (int i = 0; i < 100; ++i)
        root.New(i % 2 ? "odd" : "even") << i;
    EXPECT_EQ(50, root.Count("odd"));
    EXPECT_EQ(77, static_cast<int>(root("odd", 38)));
    for (int i = 0; i < 26; ++i)
        ASSERT_TRUE(root.Remove("even", 0));
    EXPECT_EQ(74, root.GetChildCount());
    EXPECT_EQ(1, static_cast<int>(root[0]));
    EXPECT_EQ(51, static_cast<int>(root[25]));
    EXPECT_EQ(52, static_cast<int>(root[26]));
    EXPECT_EQ(99, static_cast<int>(root[73]));
    root.New("last");
    EXPECT_EQ(PString("last"), root[74].GetName());
}

TEST(ConfigData, ArraysAddOnlyToTheirOwnType)
{
    ConfigData node;
    const float floats[] = {1.5f, 2.5f};
    node.SetFloatArray(floats, 2);
    const int ints[] = {1, 2, 3};
    node.AddIntArray(ints, 3);
    EXPECT_EQ(ConfigData::TYPE_FLOATARRAY, node.GetDataType());
    EXPECT_EQ(2, node.GetArrayCount());

    ConfigData list;
    list.AddIntArray(ints, 3);
    // The added elements may lie in the block being replaced.
    list.AddIntArray(list.GetIntArray(), 3);
    ASSERT_EQ(6, list.GetArrayCount());
    EXPECT_EQ(3, Ints(list, 5));
    list.SetIntArray(list.GetIntArray() + 4, 2);
    EXPECT_EQ(2, list.GetArrayCount());
    EXPECT_EQ(2, Ints(list, 0));

    ConfigData strings;
    const PString names[] = {"a", PString()};
    strings.AddPStringArray(names, 2);
    strings.AddPStringArray(strings.GetPStringArray(), 2);
    EXPECT_EQ(PString("a"), strings.GetPStringArray()[2]);
    strings << 5;
    EXPECT_EQ(nullptr, strings.GetPStringArray());
    EXPECT_EQ(nullptr, strings.GetIntArray());
}

TEST(ConfigData, TextReadsAsBoolAndNumbers)
{
    ConfigData node;
    for (const char * yes : {"1", "TRUE", "True", "true"})
    {
        bool value = false;
        node << yes;
        node >> value;
        EXPECT_TRUE(value) << yes;
    }
    for (const char * no : {"yes", "0", "true ", "11"})
    {
        bool value = true;
        node << no;
        node >> value;
        EXPECT_FALSE(value) << no;
    }
    bool unchanged = true;
    const float pair[] = {1, 2};
    node.SetFloatArray(pair, 2);
    node >> unchanged;
    EXPECT_TRUE(unchanged);
    node.ClearData();
    node >> unchanged;
    EXPECT_FALSE(unchanged);

    node << "0x10";
    EXPECT_EQ(16u, static_cast<unsigned int>(node));
    EXPECT_EQ(0, static_cast<int>(node));
    EXPECT_EQ(0.0f, static_cast<float>(node));
    node << "-1";
    EXPECT_EQ(0xFFFFFFFFu, static_cast<unsigned int>(node));
    node << "99999999999";
    EXPECT_EQ(2147483647, static_cast<int>(node));
    EXPECT_EQ(0xFFFFFFFFu, static_cast<unsigned int>(node));
    node << " 2.5e1x";
    EXPECT_EQ(25.0f, static_cast<float>(node));
    node << -7.9f;
    EXPECT_EQ(-7, static_cast<int>(node));
    node << 3e9f;
    EXPECT_EQ(3000000000u, static_cast<unsigned int>(node));
    EXPECT_EQ(INT32_MIN, static_cast<int>(node));
    unsigned char narrow = 0;
    node << 300;
    node >> narrow;
    EXPECT_EQ(44, narrow);
}

TEST(ConfigData, VectorsColoursAndQuaternions)
{
    ConfigData node;
    node << Kiv::Vector3(1, 2, 3);
    Kiv::Color colour = node;
    EXPECT_EQ(Kiv::Color(1, 2, 3, 1), colour);
    Kiv::Vector4 four = node;
    EXPECT_EQ(Kiv::Vector4(1, 2, 3, 0), four);

    const float quarterTurn = 1.57079633f;
    node << Kiv::Vector3(0, 0, quarterTurn);
    Kiv::Quaternion turn = node;
    EXPECT_NEAR(0.0f, turn.x, 1e-6f);
    EXPECT_NEAR(std::sqrt(0.5f), turn.z, 1e-6f);
    EXPECT_NEAR(std::sqrt(0.5f), turn.w, 1e-6f);
    node << Kiv::Vector3(quarterTurn, 0, 0);
    turn = node;
    EXPECT_NEAR(std::sqrt(0.5f), turn.x, 1e-6f);
    node << Kiv::Vector4(0, 0, 3, 4);
    node >> turn;
    EXPECT_EQ(Kiv::Quaternion(0, 0, 0.6f, 0.8f), turn);

    // Integer arrays serve float readers and the other way round.
    node << Kiv::Rect{1, 2, 3, 4};
    Kiv::Vector2 flat = node;
    EXPECT_EQ(Kiv::Vector2(1, 2), flat);
    node << Kiv::Range<float>(1.9f, -2.9f);
    Kiv::Range<int> range;
    node >> range;
    EXPECT_EQ(Kiv::Range<int>(1, -2), range);
    node << 5;
    Kiv::Vector3 none = node;
    EXPECT_EQ(Kiv::Vector3(), none);
}

TEST(ConfigData, FloatTextFollowsTheWindowsRuntime)
{
    EXPECT_EQ("2.0", FloatText(2.0f));
    EXPECT_EQ("0.5", FloatText(0.5f));
    EXPECT_EQ("100.0", FloatText(100.0f));
    EXPECT_EQ("0.1", FloatText(0.1f));
    EXPECT_EQ("-1.5", FloatText(-1.5f));
    EXPECT_EQ("0.0", FloatText(0.0f));
    EXPECT_EQ("-0.0", FloatText(-0.0f));
    EXPECT_EQ("1.2345679e+008", FloatText(123456789.0f));
    EXPECT_EQ("1.e+008", FloatText(1e8f));
    EXPECT_EQ("12345678", FloatText(12345678.0f));
    EXPECT_EQ("1234567.1", FloatText(1234567.125f));
    EXPECT_EQ("9.9999997e-006", FloatText(1e-5f));
    EXPECT_EQ("5.0000001e-002", FloatText(0.05f));
    EXPECT_EQ("3.4028235e+038", FloatText(FloatFromBits(0x7F7FFFFF)));
    EXPECT_EQ("1.4012985e-045", FloatText(FloatFromBits(1)));
    EXPECT_EQ("1.#INF", FloatText(FloatFromBits(0x7F800000)));
    EXPECT_EQ("-1.#INF", FloatText(FloatFromBits(0xFF800000)));
    EXPECT_EQ("-1.#IND", FloatText(FloatFromBits(0xFFC00000)));
    EXPECT_EQ("1.#IND", FloatText(FloatFromBits(0x7FC00000)));
    EXPECT_EQ("1.#QNAN", FloatText(FloatFromBits(0x7FE00000)));
    EXPECT_EQ("-1.#QNAN", FloatText(FloatFromBits(0xFFE00000)));

    ConfigData node;
    node << 2.0f;
    Kiv::AnsiString text;
    EXPECT_TRUE(node.GetAnsi(text));
    EXPECT_EQ(Kiv::AnsiString("2.0"), text);
    EXPECT_EQ(PString("2.0"), node.DataToPString());
}

TEST(ConfigData, CrcExcludesOnlyDirectChildren)
{
    ConfigData root("r");
    root.New("a") << 1.5f;
    EXPECT_EQ(root.Crc(), root.Crc("x"));
    ConfigData & inner = root.New("b");
    inner.New("x") << 2;
    EXPECT_EQ(root.Crc(), root.Crc("x"));
    unsigned long before = root.Crc();
    root.New("x") << 3;
    EXPECT_NE(root.Crc(), root.Crc("x"));
    EXPECT_EQ(before, root.Crc("x"));
    EXPECT_NE(before, root.Crc());
    // Data that differ only where the CRC looks differ in it: bits beyond 8 digits do not count.
    ConfigData one;
    ConfigData near;
    one << FloatFromBits(0x447A0001);
    near << FloatFromBits(0x447A0002);
    EXPECT_EQ(one.Crc(), near.Crc());
    EXPECT_FALSE(one.CompareData(near));
    near << 1;
    EXPECT_NE(one.Crc(), near.Crc());
}

TEST(ConfigData, CompareDataTakesNoDataAsANullString)
{
    ConfigData empty;
    ConfigData nullText;
    ASSERT_TRUE(nullText.SetAnsi(""));
    EXPECT_EQ(ConfigData::TYPE_STRING, nullText.GetDataType());
    EXPECT_TRUE(empty.CompareData(nullText));
    ConfigData text("n", "t");
    EXPECT_FALSE(empty.CompareData(text));

    ConfigData zero;
    ConfigData minusZero;
    const float plus[] = {0.0f};
    const float minus[] = {-0.0f};
    zero.SetFloatArray(plus, 1);
    minusZero.SetFloatArray(minus, 1);
    EXPECT_FALSE(zero.CompareData(minusZero));
    minusZero.SetFloatArray(plus, 1);
    EXPECT_TRUE(zero.CompareData(minusZero));
    ConfigData nan;
    ConfigData sameNan;
    nan << FloatFromBits(0x7FC00000);
    sameNan << FloatFromBits(0x7FC00000);
    EXPECT_TRUE(nan.CompareData(sameNan));
    sameNan << 0x7FC00000;
    EXPECT_FALSE(nan.CompareData(sameNan));
}

TEST(ConfigData, StringsKeepTheirOwnItemAndEmptyRules)
{
    ConfigData node("n", "value");
    node.SetPStringData(node.GetPStringData());
    EXPECT_STREQ("value", static_cast<const char *>(node));
    node << "";
    EXPECT_EQ(ConfigData::TYPE_NONE, node.GetDataType());
    EXPECT_EQ(0, node.GetArrayCount());
    Kiv::AnsiString text;
    ASSERT_TRUE(node.SetAnsi(""));
    EXPECT_TRUE(node.GetAnsi(text));
    EXPECT_EQ(0u, text.Length());
    ASSERT_TRUE(node.SetUnicode(Kiv::UnicodeString(L"wide")));
    EXPECT_STREQ("wide", static_cast<const char *>(node));
    Kiv::UnicodeString wide;
    node.New("f") << 0.5f;
    EXPECT_TRUE(node("f").GetUnicode(wide));
    EXPECT_EQ(0, wide.Compare(L"0.5"));
}

TEST(ConfigData, CopiesAreDeepAndDeepTreesDieWithoutRecursion)
{
    ConfigData root("root");
    root.New("a", "x").New("b") << 2;
    const PString names[] = {"p", "q"};
    root.New("list").SetPStringArray(names, 2);
    ConfigData copy(root);
    root("a")("b") << 3;
    EXPECT_EQ(2, static_cast<int>(copy("a")("b")));
    const ConfigData & same = copy;
    copy = same;
    EXPECT_EQ(PString("q"), copy("list").GetPStringArray()[1]);
    copy.CopyChildren(copy);
    EXPECT_EQ(4, copy.GetChildCount());
    root >> copy;
    EXPECT_EQ(3, static_cast<int>(copy("a")("b")));
    EXPECT_EQ(2, copy.GetChildCount());

    ConfigData * chain = new ConfigData("top");
    ConfigData * node = chain;
    for (int i = 0; i < 100000; ++i)
        node = &node->New("d");
    delete chain;
}

TEST(ConfigData, StringListsGrowSortAndStoreAsArrays)
{
    ConfigData::PStringList list;
    for (int i = 0; i < 40; ++i)
    {
        PString name;
        name.Setf("n%02d", 39 - i);
        ASSERT_TRUE(list.Add(name));
        // The element copied in may lie in the block that growing frees.
        ASSERT_TRUE(list.Insert(0, list[list.GetCount() - 1]));
        ASSERT_TRUE(list.Remove(0));
    }
    ASSERT_TRUE(list.Insert(5, list[39]));
    EXPECT_EQ(PString("n00"), list[5]);
    EXPECT_EQ(41, list.GetCount());
    ConfigData::PStringList sorted(list);
    sorted.Sort();
    EXPECT_EQ(PString("n00"), sorted[0]);
    EXPECT_EQ(PString("n00"), sorted[1]);
    EXPECT_EQ(PString("n39"), sorted[40]);
    EXPECT_EQ(3, sorted.LowerBound(PString("n02")));
    list = sorted;
    EXPECT_EQ(PString("n39"), list[40]);
    ConfigData node;
    node.SetPStringList(list);
    ASSERT_EQ(41, node.GetArrayCount());
    EXPECT_EQ(PString("n17"), node.GetPStringArray()[18]);
}
