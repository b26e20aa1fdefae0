#include "UnicodeString.h"
#include "String.h"
#include "StringTestSupport.h"
#include "TestSupport.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <string>

using Kiv::UnicodeString;

namespace
{
bool Utf8Locale()
{
    return MB_CUR_MAX > 1;
}

// 'A', e acute, U+4E2D and U+1F600, which takes a surrogate pair in UTF-16.
UnicodeString BeyondTheBasicPlane()
{
    UnicodeString text(L"A\x00e9\x4e2d");
    if constexpr (sizeof(wchar_t) == 2)
        text += L"\xd83d\xde00";
    else
        text += std::wstring(1, static_cast<wchar_t>(0x1F600)).c_str();
    return text;
}

// Bytes for n characters: (2n + 18) AND NOT 15 with a 16-bit wchar_t, the same rule in the wider
// characters of 32-bit targets.
unsigned int WideCapacity(unsigned int characters)
{
    const auto unit = static_cast<unsigned int>(sizeof(wchar_t));
    return (characters * unit + unit + 16) & ~15u;
}
} // namespace

TEST(UnicodeString, StoredAsUtf16OnEveryTarget)
{
    UnicodeString text = BeyondTheBasicPlane();
    MemoryWriter writer;
    ASSERT_TRUE(text.Write(writer));
    std::vector<unsigned char> golden =
        TestSupport::ReadBytes(TestSupport::DataFile("UnicodeStringRecord.bin"));
    EXPECT_EQ(writer.data, golden);

    MemoryReader reader(golden);
    UnicodeString back;
    ASSERT_TRUE(back.Read(reader));
    EXPECT_EQ(back.Length(), text.Length());
    EXPECT_EQ(back, static_cast<const wchar_t *>(text));

    MemoryWriter empty;
    ASSERT_TRUE(UnicodeString(L"").Write(empty));
    EXPECT_EQ(empty.data, (std::vector<unsigned char>{0, 0, 0, 0x40}));

    // A lone surrogate is read unchanged.
    MemoryReader lone({2, 0, 0, 0x40, 0x00, 0xD8});
    ASSERT_TRUE(back.Read(lone));
    ASSERT_EQ(back.Length(), 1u);
    EXPECT_EQ(static_cast<unsigned int>(back[0]), 0xD800u);
}

TEST(UnicodeString, EightBitRecordsConvertThroughTheLocale)
{
    UnicodeString text;
    MemoryReader plain({3, 0, 0, 0, 'a', 'b', 'c'});
    ASSERT_TRUE(text.Read(plain));
    EXPECT_EQ(text, L"abc");
    MemoryReader accented({2, 0, 0, 0, 0xC3, 0xA9});
    if (Utf8Locale())
    {
        ASSERT_TRUE(text.Read(accented));
        EXPECT_EQ(text, L"\x00e9");
        MemoryReader invalid({1, 0, 0, 0, 0xFF});
        EXPECT_FALSE(text.Read(invalid));
        EXPECT_TRUE(text.IsBufferNULL());
    }
    MemoryReader absurd({0xFE, 0xFF, 0xFF, 0x7F, 'a', 0});
    text = L"before";
    EXPECT_FALSE(text.Read(absurd));
    EXPECT_TRUE(text.IsBufferNULL());
}

TEST(UnicodeString, ConversionsAndTheirFailures)
{
    UnicodeString text(L"abc");
    char buffer[8];
    EXPECT_EQ(text.GetANSI(buffer, 3), 2);
    EXPECT_STREQ(buffer, "ab");
    UnicodeString han(L"\x4e2d");
    if (Utf8Locale())
    {
        EXPECT_EQ(han.GetANSI(buffer, sizeof(buffer)), 3);
        EXPECT_STREQ(buffer, "\xe4\xb8\xad");
        EXPECT_TRUE(text.SetANSI("\xe4\xb8\xad"));
        EXPECT_EQ(text, L"\x4e2d");
        // An unconvertible text leaves the string as it was.
        EXPECT_TRUE(text.SetANSI("\xff"));
        EXPECT_EQ(text, L"\x4e2d");
        EXPECT_EQ(Kiv::AnsiString(han), "\xe4\xb8\xad");
    }
    else
    {
        EXPECT_EQ(han.GetANSI(buffer, sizeof(buffer)), -1);
        EXPECT_STREQ(buffer, "");
        EXPECT_TRUE(Kiv::AnsiString(han).IsBufferNULL());
    }
    // A null string copies out an empty text.
    EXPECT_EQ(UnicodeString().GetANSI(buffer, sizeof(buffer)), 0);
    EXPECT_STREQ(buffer, "");
    EXPECT_TRUE(UnicodeString(static_cast<const char *>(nullptr)).IsBufferNULL());
}

// The copy stops before the first character that does not fit whole in size - 1 bytes, and a
// character it never reaches cannot fail it.
TEST(UnicodeString, CopiedOutInWholeCharacters)
{
    char buffer[8];
    std::memset(buffer, '?', sizeof(buffer));
    if (Utf8Locale())
    {
        UnicodeString accent(L"a\x00e9");
        EXPECT_EQ(accent.GetANSI(buffer, 3), 1);
        EXPECT_STREQ(buffer, "a");
        EXPECT_EQ(accent.GetANSI(buffer, 4), 3);
        EXPECT_STREQ(buffer, "a\xc3\xa9");
        EXPECT_EQ(UnicodeString(L"\x4e2d\x4e2d").GetANSI(buffer, 6), 3);
    }
    // Where wide characters are UTF-16 units, a copy never ends between the halves of a pair.
    if constexpr (sizeof(wchar_t) == 2)
    {
        UnicodeString pair(L"a\xd83d\xde00");
        wchar_t units[4];
        EXPECT_EQ(pair.GetUnicode(units, 3), 1);
        EXPECT_EQ(std::wstring(units), L"a");
        EXPECT_EQ(pair.GetUnicode(units, 4), 3);
    }

    // A character the current set cannot hold: a lone surrogate where wide characters are 32 bits,
    // else one outside the 8-bit set.
    UnicodeString tail(L"ab");
    if (sizeof(wchar_t) == 4 && Utf8Locale())
        tail += std::wstring(1, static_cast<wchar_t>(0xD800)).c_str();
    else if (!Utf8Locale())
        tail += L"\x4e2d";
    else
        GTEST_SKIP() << "no unconvertible wide character in this locale";
    EXPECT_EQ(tail.GetANSI(buffer, 3), 2);
    EXPECT_STREQ(buffer, "ab");
    EXPECT_EQ(tail.GetANSI(buffer, sizeof(buffer)), -1);
    EXPECT_STREQ(buffer, "");
}

TEST(UnicodeString, KeptTextGrowsToTheNeededCapacityOnly)
{
    UnicodeString text(std::wstring(40, L'a').c_str());
    ASSERT_EQ(text.AllocSize(), WideCapacity(40));
    text += L"0123456789";
    EXPECT_EQ(text.AllocSize(), WideCapacity(50));
    // A shorter text keeps the larger capacity; only the null text gives it back.
    text = L"short";
    EXPECT_EQ(text.AllocSize(), WideCapacity(50));
    text.Set(nullptr);
    EXPECT_EQ(text.AllocSize(), 0u);
    UnicodeString reserved(std::wstring(40, L'a').c_str());
    reserved.SetLength(60);
    EXPECT_EQ(reserved.AllocSize(), WideCapacity(60));
    EXPECT_EQ(reserved.Length(), 40u);
}

TEST(UnicodeString, FormattingFitsExactlyAtTheTopOfTheLadder)
{
    const int top = 33554431;
    UnicodeString text;
    text.Setf(L"%*ls", top, L"q");
    ASSERT_EQ(text.Length(), static_cast<unsigned int>(top));
    EXPECT_EQ(text[0], L' ');
    EXPECT_EQ(text[top - 1], L'q');
    EXPECT_EQ(text[top], L'\0');
    // One more is past the ladder: the result is empty, and unlike the 8-bit string not null.
    text.Setf(L"%*ls", top + 1, L"q");
    EXPECT_FALSE(text.IsBufferNULL());
    EXPECT_EQ(text.Length(), 0u);
}

TEST(UnicodeString, EditsFormattingAndCapacity)
{
    UnicodeString text;
    text.Setf(L"%d:%ls", 7, L"seven");
    EXPECT_EQ(text.Addf(L"%c", L'!'), 1);
    EXPECT_EQ(text, L"7:seven!");
    text.Setf(L"%ls", L"");
    EXPECT_FALSE(text.IsBufferNULL());
    EXPECT_EQ(text.Length(), 0u);

    text = L"a-b-c";
    text.Strip(L"-");
    EXPECT_EQ(text, L"abc");
    text.Ins(L"XY", 1);
    text.Del(1, 100);
    EXPECT_EQ(text, L"a");
    text = L"Hello World";
    EXPECT_EQ(text.Find(L"World"), 6);
    EXPECT_EQ(text.FindIgnoreCase(L"WORLD"), 6);
    text.ToUpper();
    EXPECT_EQ(text, L"HELLO WORLD");

    UnicodeString null;
    EXPECT_TRUE(null < L"");
    EXPECT_TRUE(null == nullptr);
    EXPECT_EQ(null.Compare(nullptr), 1);
    EXPECT_EQ(UnicodeString(L"x").Compare(nullptr), 2);
    EXPECT_TRUE(UnicodeString(L"abc").EqualsIgnoreCase(L"ABC"));
}
