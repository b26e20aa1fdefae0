#include "PString.h"
#include "String.h"
#include "StringTestSupport.h"
#include "UnicodeString.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

using Kiv::AnsiString;
using Kiv::MultiByteString;
using Kiv::UnicodeString;

namespace
{
// 'a', e acute (2 bytes), U+4E2D (3 bytes), 'b' in UTF-8.
const char * const mixed = "a\xc3\xa9\xe4\xb8\xad"
                           "b";

std::string Bytes(const MultiByteString & text)
{
    return text.IsBufferNULL() ? std::string("<null>") : std::string(text.CStr(), text.Size());
}

std::vector<unsigned char> Written(const MultiByteString & text)
{
    MemoryWriter writer;
    EXPECT_TRUE(text.Write(writer));
    return writer.data;
}

#define SKIP_UNLESS_MULTIBYTE_LOCALE()                                                                       \
    if (MB_CUR_MAX == 1)                                                                                     \
    GTEST_SKIP() << "the current locale has no multibyte characters"
} // namespace

TEST(MultiByteString, EditsCountBytesAndKeepTheCharacterCount)
{
    SKIP_UNLESS_MULTIBYTE_LOCALE();
    MultiByteString text(mixed);
    EXPECT_EQ(text.Length(), 4u);
    // Searches give byte offsets that edits take back unchanged; a character is never found as a
    // byte inside another one.
    EXPECT_EQ(text.Find("\xe4\xb8\xad"), 3);
    EXPECT_EQ(text.Find(0xE9u), 1);
    EXPECT_EQ(text.Find(0xB8u), -1);
    EXPECT_EQ(text.FindIgnoreCase('B'), 6);
    text.Del(3, 3);
    EXPECT_EQ(Bytes(text), "a\xc3\xa9"
                           "b");
    EXPECT_EQ(text.Length(), 3u);
    text.Ins("\xe4\xb8\xad", 1);
    text.Ins(0x4E2Du, text.Size(), 2);
    EXPECT_EQ(text.Size(), 13u);
    EXPECT_EQ(text.Length(), 6u);
    EXPECT_EQ(text.Mid(1, 3).Length(), 1u);

    MultiByteString repeated(0xE9u, 3);
    repeated += L"\x4e2d";
    repeated += repeated;
    EXPECT_EQ(repeated.Length(), 8u);
    wchar_t wide[16];
    EXPECT_EQ(repeated.GetUnicode(wide, 16), 8);
    EXPECT_EQ(std::wstring(wide), L"\x00e9\x00e9\x00e9\x4e2d\x00e9\x00e9\x00e9\x4e2d");

    // Cutting inside a character leaves a stray byte, counted as one character.
    MultiByteString cut("a\xc3\xa9");
    cut.Left(2);
    EXPECT_EQ(Bytes(cut), "a\xc3");
    EXPECT_EQ(cut.Length(), 2u);
    EXPECT_EQ(cut.GetUnicode(wide, 16), -1);
    EXPECT_EQ(wide[0], 0);

    // Case rules leave the bytes of multibyte characters alone.
    MultiByteString upper("a\xc3\xa9z");
    upper.ToUpper();
    EXPECT_EQ(Bytes(upper), "A\xc3\xa9Z");
}

TEST(MultiByteString, SetsOfMultibyteCharactersMatchWholeCharacters)
{
    SKIP_UNLESS_MULTIBYTE_LOCALE();
    // e acute and a tilde share their first byte; stripping one must not damage the other.
    MultiByteString text("\xc3\xa9x\xc3\xa3\xc3\xa9");
    text.Strip("\xc3\xa9");
    EXPECT_EQ(Bytes(text), "x\xc3\xa3");
    EXPECT_EQ(text.Length(), 2u);

    MultiByteString list("\xe4\xb8\xad,one\xe4\xb8\xadtw\xc3\xa3,");
    EXPECT_EQ(Bytes(list.Token("\xe4\xb8\xad,")), "one");
    MultiByteString second = list.Token("\xe4\xb8\xad,");
    EXPECT_EQ(Bytes(second), "tw\xc3\xa3");
    EXPECT_EQ(second.Length(), 3u);
    EXPECT_EQ(Bytes(list), ",");
    EXPECT_TRUE(list.Token(",").IsBufferNULL());
}

TEST(MultiByteString, MalformedTextIsCountedWithinItsBytes)
{
    unsigned int size = 0;
    const auto * accented = reinterpret_cast<const unsigned char *>("\xc3\xa9t\xc3\xa9");
    EXPECT_EQ(MultiByteString::GetLengthAndSize(accented, size), MB_CUR_MAX > 1 ? 3u : 5u);
    EXPECT_EQ(size, 5u);
    // Whatever the locale, a byte that starts no character counts as one, and a sequence cut off
    // by the end of the text is never read past that end.
    std::vector<char> cutOff{'a', '\xe4', '\xb8'};
    MultiByteString text(cutOff.data(), static_cast<unsigned int>(cutOff.size()));
    EXPECT_EQ(text.Size(), 3u);
    EXPECT_EQ(text.Length(), 3u);
    EXPECT_EQ(MultiByteString::GetLengthAndSize(reinterpret_cast<const unsigned char *>("\xff\xfe"
                                                                                        "a\xe4"),
                                                size),
              4u);
    EXPECT_EQ(size, 4u);
    EXPECT_EQ(MultiByteString::GetLengthAndSize(nullptr, size), 0u);
    EXPECT_EQ(size, 0u);

    MultiByteString stray("\xff-\xe4-\xb8");
    stray.Strip("-");
    EXPECT_EQ(Bytes(stray), "\xff\xe4\xb8");
    EXPECT_EQ(stray.Length(), 3u);
    // A cut-off sequence in the delimiter set matches nothing whole.
    MultiByteString tokens("\xe4x\xe4");
    EXPECT_EQ(Bytes(tokens.Token("\xe4")), "x");
    EXPECT_EQ(Bytes(tokens), "\xe4");
    // A set holding a character's leading bytes matches them only where they are characters.
    EXPECT_EQ(Bytes(MultiByteString("\xe4\xb8\xad").Token("\xe4\xb8")),
              MB_CUR_MAX > 1 ? "\xe4\xb8\xad" : "\xad");

    // Text with NUL bytes inside keeps every byte.
    MultiByteString nul("a\0b", 3);
    EXPECT_EQ(nul.Length(), 3u);
    EXPECT_EQ(nul.Find('b'), 2);
    EXPECT_EQ(Written(nul), (std::vector<unsigned char>{3, 0, 0, 0, 'a', 0, 'b'}));
}

TEST(MultiByteString, CapacityFollowsTheSixteenRuleAndNeverShrinks)
{
    EXPECT_EQ(MultiByteString(std::string(14, 'a').c_str()).AllocSize(), 16u);
    EXPECT_EQ(MultiByteString(std::string(15, 'a').c_str()).AllocSize(), 32u);
    MultiByteString text(std::string(40, 'a').c_str());
    EXPECT_EQ(text.AllocSize(), 48u);
    text = "short";
    text.Del(0, 2);
    text.Setf("%d", 7);
    text.SetLength(0);
    EXPECT_EQ(text.AllocSize(), 48u);
    EXPECT_EQ(text.Size(), 0u);
    text.SetLength(100);
    EXPECT_EQ(text.Size(), 0u);
    EXPECT_EQ(text.AllocSize(), 112u);
    text = "x";
    EXPECT_EQ(text.AllocSize(), 112u);
    // Only the null text gives its buffer back, and an empty format result is null.
    text.Setf("%s", "");
    EXPECT_TRUE(text.IsBufferNULL());
    EXPECT_EQ(text.AllocSize(), 0u);

    // Kept text grows to the larger of the needed and the old capacity, never by doubling.
    MultiByteString forty(std::string(40, 'a').c_str());
    forty += "0123456789";
    EXPECT_EQ(forty.AllocSize(), 64u);
    MultiByteString reserved(std::string(40, 'a').c_str());
    reserved.SetLength(60);
    EXPECT_EQ(reserved.AllocSize(), 64u);
    MultiByteString grown(std::string(14, 'a').c_str());
    grown.Ins(L'x', 0, 1);
    EXPECT_EQ(grown.AllocSize(), 32u);
    grown.Addf("%s", std::string(15, 'y').c_str());
    EXPECT_EQ(grown.AllocSize(), 32u);
    grown.Addf("%c", 'y');
    EXPECT_EQ(grown.AllocSize(), 48u);
}

TEST(MultiByteString, CopiedOutInWholeCharacters)
{
    SKIP_UNLESS_MULTIBYTE_LOCALE();
    MultiByteString text(mixed);
    char buffer[16];
    const int expected[] = {-1, 0, 1, 1, 3, 3, 3, 6, 7, 7};
    EXPECT_EQ(text.GetANSI(buffer, 0), -1);
    for (unsigned int size = 1; size < 10; ++size)
    {
        std::memset(buffer, '?', sizeof(buffer));
        ASSERT_EQ(text.GetANSI(buffer, size), expected[size]) << size;
        EXPECT_EQ(std::string(buffer), std::string(mixed, static_cast<size_t>(expected[size]))) << size;
    }
    // A stray byte counts as one character of one byte.
    MultiByteString stray("ab\xe4\xb8");
    EXPECT_EQ(stray.GetANSI(buffer, 4), 3);
    EXPECT_EQ(MultiByteString().GetANSI(buffer, 4), 0);
    EXPECT_STREQ(buffer, "");
}

TEST(MultiByteString, FormattingConversionsAndTheIndex)
{
    MultiByteString text;
    text.Setf("%d-%s", 42, "x");
    EXPECT_EQ(text.Addf("%05d", 7), 5);
    EXPECT_EQ(Bytes(text), "42-x00007");
    // Set from inside itself.
    text = text.CStr() + 5;
    EXPECT_EQ(Bytes(text), "0007");
    text.Set(-255, 16);
    EXPECT_EQ(Bytes(text), "ffffff01");
    EXPECT_EQ(MultiByteString("  -17x").GetInt(), -17);
    EXPECT_TRUE(text.SetUnicode(L"wide"));
    wchar_t back[3];
    EXPECT_EQ(text.GetUnicode(back, 3), 2);
    EXPECT_EQ(std::wstring(back), L"wi");
    EXPECT_EQ(Bytes(MultiByteString(Kiv::PString("pooled"))), "pooled");
    EXPECT_TRUE(MultiByteString(UnicodeString()).IsBufferNULL());

    // Bytes written through the index change this text and not a copy of it.
    text.Setn("abcdef", 3);
    text[1] = 'X';
    text[2u] = 'Y';
    MultiByteString copy(text);
    copy[0] = 'z';
    EXPECT_EQ(Bytes(text), "aXY");
    EXPECT_EQ(Bytes(copy), "zXY");
    EXPECT_EQ(static_cast<const MultiByteString &>(text)[1], static_cast<unsigned int>('X'));
}

TEST(MultiByteString, Comparison)
{
    MultiByteString null;
    EXPECT_TRUE(null < "");
    EXPECT_TRUE(MultiByteString("\xe9") > "z");
    EXPECT_EQ(null.Compare(nullptr), 1);
    EXPECT_TRUE(MultiByteString("abc").EqualsIgnoreCase("ABC"));
    EXPECT_EQ(MultiByteString::FindIgnoreCase("abcABC", 6, "Ca", 0), 2);
}

// Records are read as 8-bit records are; null and empty both write a zero count, and a failed read
// leaves the null text.
TEST(MultiByteString, Records)
{
    EXPECT_EQ(Written(MultiByteString()), (std::vector<unsigned char>{0, 0, 0, 0}));
    EXPECT_EQ(Written(MultiByteString("")), (std::vector<unsigned char>{0, 0, 0, 0}));
    MultiByteString text("before");
    MemoryReader broken({9, 0, 0, 0, 'x'});
    EXPECT_FALSE(text.Read(broken));
    EXPECT_TRUE(text.IsBufferNULL());
}

TEST(MultiByteString, MultibyteRecordsReadAsTheSameBytes)
{
    SKIP_UNLESS_MULTIBYTE_LOCALE();
    std::vector<unsigned char> record = Written(MultiByteString(mixed));
    EXPECT_EQ(record.size(), 4u + 7u);
    MultiByteString text;
    MemoryReader reader(record);
    ASSERT_TRUE(text.Read(reader));
    EXPECT_EQ(Bytes(text), mixed);
    EXPECT_EQ(text.Length(), 4u);
}

TEST(StringBounds, IndicesPastTheEndOnEveryType)
{
    auto check = [](auto text, auto c, auto upper, auto empty, auto longer)
    {
        for (unsigned int start : {3u, 4u, 1000u, UINT_MAX})
        {
            EXPECT_EQ(text.Find(c, start), -1) << start;
            EXPECT_EQ(text.Find('c', start), -1) << start;
            EXPECT_EQ(text.FindIgnoreCase('C', start), -1) << start;
            EXPECT_EQ(text.FindIgnoreCase(upper, start), -1) << start;
        }
        // The terminating NUL is found at the end, as strchr finds it.
        EXPECT_EQ(text.Find(0u, 3), 3);
        EXPECT_EQ(text.Find(empty, 3), 3);
        EXPECT_EQ(text.Find(longer), -1);
        // A null delimiter set takes the whole text.
        const unsigned int size = text.Size();
        EXPECT_EQ(text.Token(nullptr).Size(), size);
        EXPECT_TRUE(decltype(text)().Token(nullptr).IsBufferNULL());
    };
    check(AnsiString("abc"), "c", "C", "", "abcd");
    check(UnicodeString(L"abc"), L"c", L"C", L"", L"abcd");
    check(MultiByteString("abc"), "c", "C", "", "abcd");
    EXPECT_EQ(AnsiString("abc").Mid(UINT_MAX, 2).Length(), 0u);
    EXPECT_EQ(MultiByteString("abc").Mid(1, UINT_MAX).Size(), 2u);
    EXPECT_TRUE(MultiByteString(",,").Token(",").IsBufferNULL());
}

// A null search text is found nowhere, by every search of every string type, and a null format
// formats nothing; a null string reads as NUL through its index, and a write through it reaches
// no other string.
TEST(StringBounds, NullTextsAndNullStrings)
{
    auto check = [](auto text, auto * none, auto * full)
    {
        using Text = decltype(text);
        EXPECT_EQ(text.Find(none), -1);
        EXPECT_EQ(text.FindIgnoreCase(none), -1);
        EXPECT_EQ(Text::FindIgnoreCase(full, 3, none, 0), -1);
        Text null;
        null[0] = 'x';
        EXPECT_EQ(null[0], 0);
        EXPECT_EQ(static_cast<unsigned int>(static_cast<const Text &>(null)[0]), 0u);
        EXPECT_TRUE(null.IsBufferNULL());
        EXPECT_EQ(text.Addf(none), 0);
        text.Setf(none);
        EXPECT_EQ(text.Length(), 0u);
    };
    check(AnsiString("abc"), static_cast<const char *>(nullptr), "abc");
    check(UnicodeString(L"abc"), static_cast<const wchar_t *>(nullptr), L"abc");
    check(MultiByteString("abc"), static_cast<const char *>(nullptr), "abc");
    // A null format leaves the 8-bit strings null, the wide one empty.
    AnsiString ansi("abc");
    UnicodeString wide(L"abc");
    ansi.Setf(nullptr);
    wide.Setf(nullptr);
    EXPECT_TRUE(ansi.IsBufferNULL());
    EXPECT_EQ(wide, L"");
}

// Counts that would grow a text past what a record can hold leave it as it was, instead of
// wrapping the capacity arithmetic and writing past the buffer.
TEST(StringBounds, AbsurdCountsChangeNothing)
{
    auto check = [](auto text, auto * x)
    {
        text.Ins('x', 1, UINT_MAX);
        text.Ins('x', 1, UINT_MAX - 2);
        text.SetLength(UINT_MAX);
        text.Ins(x, 4);
        text.Del(UINT_MAX, UINT_MAX);
        EXPECT_EQ(text.Length(), 3u);
        EXPECT_LT(text.AllocSize(), 1024u);
        text.Del(1, UINT_MAX);
        EXPECT_EQ(text.Length(), 1u);
    };
    check(AnsiString("abc"), "x");
    check(UnicodeString(L"abc"), L"x");
    check(MultiByteString("abc"), "x");

    // Whole texts claimed longer than any string may hold are no text at all, never read past.
    for (unsigned int count : {UINT_MAX - 5, 0x7FFFFFF8u})
    {
        EXPECT_TRUE(AnsiString("abc", count).IsBufferNULL());
        EXPECT_TRUE(UnicodeString(L"abc", count).IsBufferNULL());
        EXPECT_TRUE(MultiByteString("abc", count).IsBufferNULL());
    }
    EXPECT_TRUE(AnsiString(L"abc", 0xC0000000u).IsBufferNULL());
    AnsiString ansi("abc");
    EXPECT_TRUE(ansi.SetANSI("abc", INT_MAX));
    EXPECT_TRUE(ansi.IsBufferNULL());
    UnicodeString wide(L"abc");
    wide.Set(L"abc", -1, 0x40000000);
    EXPECT_TRUE(wide.IsBufferNULL());
    EXPECT_TRUE(Kiv::PString("abc", UINT_MAX - 30).IsNull());
    EXPECT_EQ(Kiv::PString::cache->GetUnique(nullptr, UINT_MAX - 30), nullptr);
}
