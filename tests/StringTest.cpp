#include "String.h"
#include "StringTestSupport.h"
#include "TestSupport.h"
#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <clocale>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

using Kiv::AnsiString;
using Kiv::String;

namespace
{
bool Utf8Locale()
{
    return MB_CUR_MAX > 1;
}

std::vector<unsigned char> Written(const AnsiString & text)
{
    MemoryWriter writer;
    EXPECT_TRUE(text.Write(writer));
    return writer.data;
}
} // namespace

TEST(AnsiString, NullIsDistinctFromEmptyAndComparesByItsOwnConvention)
{
    AnsiString null;
    AnsiString empty("");
    AnsiString abc("abc");
    EXPECT_EQ(static_cast<const char *>(null), nullptr);
    EXPECT_EQ(null.Size(), 0u);
    ASSERT_NE(static_cast<const char *>(empty), nullptr);
    EXPECT_EQ(empty.AllocSize(), 16u);
    EXPECT_EQ(empty.Size(), 1u);
    EXPECT_TRUE(empty > null);
    EXPECT_TRUE(null == nullptr);
    EXPECT_FALSE(null == "");
    EXPECT_TRUE(AnsiString(static_cast<const char *>(nullptr)).IsBufferNULL());
    EXPECT_STREQ(AnsiString("abcdef", 3), "abc");

    // Two nulls compare 1, a null and a text 0, a text and a null 2.
    EXPECT_EQ(null.Compare(AnsiString()), 1);
    EXPECT_EQ(null.Compare("abc"), 0);
    EXPECT_EQ(abc.Compare(nullptr), 2);
    EXPECT_EQ(abc.Compare("abd"), -1);
    EXPECT_EQ(null.CompareIgnoreCase(nullptr), 1);
    EXPECT_LT(abc.CompareIgnoreCase("ABD"), 0);
    // Case-sensitive operators order bytes unsigned: a high byte sorts after ASCII.
    EXPECT_TRUE(AnsiString("\xe9") > "z");
    EXPECT_TRUE(AnsiString("B") < "a");
    EXPECT_TRUE(abc.EqualsIgnoreCase("ABC"));
    EXPECT_FALSE(null.EqualsIgnoreCase(""));
}

// Capacity is the length and NUL rounded up to 16; a record replaced while its text is kept takes
// the larger of the needed and the old capacity, never doubling, and never shrinks.
TEST(AnsiString, CapacityGrowsInSixteensToTheNeededSizeOnly)
{
    for (auto [length, capacity] : {std::pair{14u, 16u}, {15u, 32u}, {30u, 32u}, {31u, 48u}})
        EXPECT_EQ(AnsiString(std::string(length, 'a').c_str()).AllocSize(), capacity) << length;
    AnsiString text(std::string(40, 'a').c_str());
    text.Del(0, 38);
    EXPECT_EQ(text.AllocSize(), 48u);
    text.SetLength(100);
    EXPECT_EQ(text.Length(), 2u);
    EXPECT_EQ(text.AllocSize(), 112u);
    text.SetLength(1);
    EXPECT_STREQ(text, "a");
    EXPECT_EQ(text.AllocSize(), 112u);

    AnsiString forty(std::string(40, 'a').c_str());
    forty += "0123456789";
    EXPECT_EQ(forty.AllocSize(), 64u);
    AnsiString reserved(std::string(40, 'a').c_str());
    reserved.SetLength(60);
    EXPECT_EQ(reserved.AllocSize(), 64u);
    EXPECT_EQ(reserved.Length(), 40u);

    // A shared record is replaced too: the copy keeps the larger old capacity, the original
    // keeps its text.
    AnsiString wide(std::string(100, 'w').c_str());
    wide.Left(3);
    AnsiString sharer(wide);
    sharer += "!";
    EXPECT_EQ(sharer.AllocSize(), 112u);
    EXPECT_STREQ(sharer, "www!");
    EXPECT_STREQ(wide, "www");
}

TEST(AnsiString, CopiesShareUntilWrittenBySetters)
{
    AnsiString original("shared");
    AnsiString copy(original);
    EXPECT_EQ(static_cast<const char *>(copy), static_cast<const char *>(original));
    // Writing through the non-const index is deliberately visible to every sharer.
    copy[0] = 'S';
    EXPECT_STREQ(original, "Shared");
    copy += "!";
    EXPECT_STREQ(copy, "Shared!");
    EXPECT_STREQ(original, "Shared");
    copy += copy;
    EXPECT_STREQ(copy, "Shared!Shared!");
    copy = static_cast<const char *>(copy) + 7;
    EXPECT_STREQ(copy, "Shared!");

    // The null text is shared by every null string: a write through the index of one must not
    // show in the others.
    AnsiString null;
    null[0] = '7';
    EXPECT_TRUE(null.IsBufferNULL());
    EXPECT_EQ(null[0], 0);
    const AnsiString another;
    EXPECT_EQ(another[0], 0u);
}

TEST(AnsiString, EditsStayInsideTheText)
{
    AnsiString text("abcdef");
    text.Del(2, 100);
    EXPECT_STREQ(text, "ab");
    text = "abcdef";
    text.Del(6, 1);
    text.Del(1, 0);
    text.Left(10);
    text.Ins("XY", 7);
    EXPECT_STREQ(text, "abcdef");
    EXPECT_STREQ(text.Mid(1, 3), "bcd");
    text.Ins("XY", 6);
    text.Ins('-', 0, 2);
    EXPECT_STREQ(text, "--abcdefXY");
    for (auto [start, count, expected] : {std::tuple{2, 100, "cdef"}, {1, 2, "bc"}})
        EXPECT_STREQ(String(String("abcdef"), start, count), expected);
    EXPECT_TRUE(String(String("abcdef"), 6, 1).IsBufferNULL());

    text = ", ab, cd";
    EXPECT_STREQ(text.Token(" ,"), "ab");
    EXPECT_STREQ(text.Token(" ,"), "cd");
    EXPECT_TRUE(text.Token(" ,").IsBufferNULL());
    text = "a-b-c";
    text.Strip("-");
    EXPECT_STREQ(text, "abc");
}

TEST(AnsiString, FindAndFindIgnoreCase)
{
    AnsiString text("Hello World");
    EXPECT_EQ(text.Find('o'), 4);
    EXPECT_EQ(text.Find('o', 5), 7);
    EXPECT_EQ(text.Find("World"), 6);
    EXPECT_EQ(AnsiString().Find('a'), -1);
    EXPECT_EQ(AnsiString().Find(""), -1);
    EXPECT_EQ(text.FindIgnoreCase("WORLD"), 6);
    EXPECT_EQ(text.FindIgnoreCase("", 3), 3);
    EXPECT_EQ(AnsiString::FindIgnoreCase("aXbx", 'X', 2), 3);
    EXPECT_EQ(AnsiString::FindIgnoreCase(nullptr, 'x', 0), -1);
    EXPECT_EQ(AnsiString::FindIgnoreCase("abcABC", 6, "BC", 2), 4);
    EXPECT_EQ(AnsiString::FindIgnoreCase("abc", 3, "abcd", 0), -1);
}

TEST(AnsiString, FormattingClimbsTheLadderAndEmptyMeansNull)
{
    AnsiString text;
    text.Setf("%d-%s", 42, "x");
    EXPECT_STREQ(text, "42-x");
    EXPECT_EQ(text.Addf("%05d", 7), 5);
    EXPECT_STREQ(text, "42-x00007");
    text.Setf("%s", "");
    EXPECT_TRUE(text.IsBufferNULL());
    for (size_t size : {1023u, 1024u, 200000u})
    {
        std::string expected(size, 'q');
        text.Setf("%s", expected.c_str());
        EXPECT_EQ(text.Length(), size);
        EXPECT_EQ(std::string(text), expected);
    }
    text = "self";
    text.Setf("%s+%s", static_cast<const char *>(text), static_cast<const char *>(text));
    EXPECT_STREQ(text, "self+self");
    text.Set(-255, 16);
    EXPECT_STREQ(text, "ffffff01");
    text = "  -17xyz";
    EXPECT_EQ(text.GetInt(), -17);
    EXPECT_EQ(AnsiString().GetInt(), 0);

    // The last step of the ladder holds 33,554,431 characters and a NUL: a text of exactly that
    // length fits, one more does not.
    const int top = 33554431;
    text.Setf("%*s", top, "q");
    ASSERT_EQ(text.Length(), static_cast<unsigned int>(top));
    EXPECT_EQ(text[0], ' ');
    EXPECT_EQ(text[top - 1], 'q');
    EXPECT_EQ(text[top], 0u);
    text.Setf("%*s", top + 1, "q");
    EXPECT_TRUE(text.IsBufferNULL());
}

TEST(AnsiString, CopiedOutWithinTheBufferAndConvertedByTheLocale)
{
    AnsiString text("abcdef");
    char buffer[4];
    EXPECT_EQ(text.GetANSI(buffer, 4), 3);
    EXPECT_STREQ(buffer, "abc");
    EXPECT_EQ(text.GetANSI(buffer, 0), -1);
    wchar_t wide[4];
    EXPECT_EQ(text.GetUnicode(wide, sizeof(wide)), 3);
    EXPECT_EQ(std::wstring(wide), L"abc");

    EXPECT_TRUE(AnsiString(Kiv::UnicodeString()).IsBufferNULL());
    EXPECT_EQ(text.SetUnicode(L"\x4e2d"), Utf8Locale());
    // A failed conversion leaves the null text.
    EXPECT_EQ(text.IsBufferNULL(), !Utf8Locale());
    if (!Utf8Locale())
        return;
    EXPECT_STREQ(text, "\xe4\xb8\xad");
    EXPECT_EQ(text.GetUnicode(wide, sizeof(wide)), 1);
    EXPECT_EQ(wide[0], L'\x4e2d');
}

TEST(AnsiString, SerialisedFormsAreExact)
{
    EXPECT_EQ(Written(AnsiString()), (std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_EQ(Written(AnsiString("")), (std::vector<unsigned char>{0, 0, 0, 0}));
    AnsiString hello("Hello, Kiv!");
    EXPECT_EQ(Written(hello), TestSupport::ReadBytes(TestSupport::DataFile("AnsiStringRecord.bin")));
    MemoryReader golden(TestSupport::ReadBytes(TestSupport::DataFile("AnsiStringRecord.bin")));
    AnsiString back;
    ASSERT_TRUE(back.Read(golden));
    EXPECT_STREQ(back, "Hello, Kiv!");

    // A zero count, narrow or wide, reads as the empty, not the null, text.
    for (const std::vector<unsigned char> & zero : {std::vector<unsigned char>{0, 0, 0, 0}, {0, 0, 0, 0x40}})
    {
        MemoryReader reader(zero);
        ASSERT_TRUE(back.Read(reader));
        EXPECT_FALSE(back.IsBufferNULL());
        EXPECT_EQ(back.Length(), 0u);
    }
    MemoryReader wide({4, 0, 0, 0x40, 'h', 0, 'i', 0});
    ASSERT_TRUE(back.Read(wide));
    EXPECT_STREQ(back, "hi");

    ShortWriter full(6);
    EXPECT_FALSE(hello.Write(full));
}

TEST(AnsiString, MalformedRecordsFailWithoutHugeAllocations)
{
    AnsiString text("before");
    MemoryReader absurd({0xFF, 0xFF, 0xFF, 0x3F, 'a', 'b'});
    EXPECT_FALSE(text.Read(absurd));
    EXPECT_TRUE(text.IsBufferNULL());
    EXPECT_LE(absurd.largestRequest, 65536u);

    // A wide count beyond the data, a text cut short, a count word cut short.
    for (const std::vector<unsigned char> & bytes :
         {std::vector<unsigned char>{0xFF, 0xFF, 0xFF, 0x7F, 'a', 0}, {5, 0}})
    {
        MemoryReader reader(bytes);
        text = "before";
        EXPECT_FALSE(text.Read(reader));
        EXPECT_TRUE(text.IsBufferNULL());
    }
}

TEST(AnsiString, SharedTextSurvivesCopiesOnManyThreads)
{
    const AnsiString shared("a text that every thread copies, edits and releases");
    auto work = [&shared](int t)
    {
        for (int i = 0; i < 20000; ++i)
        {
            AnsiString copy(shared);
            if (i % 64 == t)
                copy += "x";
        }
    };
    std::thread threads[] = {std::thread(work, 0), std::thread(work, 1), std::thread(work, 2)};
    for (auto & thread : threads)
        thread.join();
    EXPECT_STREQ(shared, "a text that every thread copies, edits and releases");
}
