#include "Console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

namespace
{
std::string Line(const Kiv::Console & console, int row)
{
    return std::string(console.GetLine(row), console.GetWidth());
}

Kiv::Console Make(int width, int height)
{
    Kiv::Console console;
    EXPECT_TRUE(console.Init({width, height}));
    return console;
}
} // namespace

TEST(Console, WrappingAndRingScrolling)
{
    Kiv::Console console = Make(5, 3);
    console.Print("abcdefgh");
    EXPECT_EQ(Line(console, 0), "abcde");
    EXPECT_EQ(Line(console, 1), "fgh  ");
    EXPECT_EQ(console.GetCursor().x, 3);
    EXPECT_EQ(console.GetCursor().y, 1);

    // The fourth line scrolls the first one out: the top of the ring moves on.
    console.Print("\nline3\nz");
    EXPECT_EQ(Line(console, 0), "fgh  ");
    EXPECT_EQ(Line(console, 1), "line3");
    EXPECT_EQ(Line(console, 2), "z    ");
    console.Print("\n\n\n\nend");
    EXPECT_EQ(Line(console, 0), "     ");
    EXPECT_EQ(Line(console, 2), "end  ");

    console.Goto(1, 0);
    console.Print('#', 2);
    EXPECT_EQ(Line(console, 0), " ##  ");
    // Positions outside the grid are held at its edges.
    console.Goto(99, -4);
    console.Print('!');
    EXPECT_EQ(Line(console, 0), " ## !");

    console.Clear();
    for (int row = 0; row < 3; ++row)
    {
        EXPECT_EQ(Line(console, row), "     ");
    }
    console.Print(42, 4);
    console.Bar(3, 18);
    EXPECT_EQ(Line(console, 0), "  42\x12");
    EXPECT_EQ(Line(console, 1), "\x12\x12   ");
    console.Printf("%s|%03d", "x", 7);
    EXPECT_EQ(Line(console, 1), "\x12\x12x|0");

    // Copies own their grid.
    Kiv::Console copy(console);
    console.Clear();
    EXPECT_EQ(Line(copy, 0), "  42\x12");
    copy = copy;
    copy = console;
    EXPECT_EQ(Line(copy, 0), "     ");

    Kiv::Console refused;
    EXPECT_FALSE(refused.Init({0, 5}));
    EXPECT_FALSE(refused.Init({1 << 16, 1 << 16}));
    refused.Print("nothing to print on");
    EXPECT_EQ(refused.GetLine(0), nullptr);
}

TEST(Console, ColourTags)
{
    Kiv::Console console = Make(20, 2);
    console.Print("ab<color:FF8040>red</color>cd<b>e<color:");
    EXPECT_EQ(Line(console, 0), "abredcd<b>e<color:  ");
    ASSERT_EQ(console.GetColorSpanCount(), 1);
    EXPECT_EQ(console.GetColorSpan(0).position, 2);
    EXPECT_EQ(console.GetColorSpan(0).length, 3);
    EXPECT_EQ(console.GetColorSpan(0).color, 0x4080FFu);

    // Over-long colours keep their last 8 digits; a new colour ends the open span; a span that
    // covers nothing is dropped; a span continues across the wrap.
    console.Print("<color:123456789ABC><color:00FF00>xy<color:0000ff>0123456789");
    ASSERT_EQ(console.GetColorSpanCount(), 3);
    EXPECT_EQ(console.GetColorSpan(1).position, 18);
    EXPECT_EQ(console.GetColorSpan(1).color, 0x00FF00u);
    EXPECT_EQ(console.GetColorSpan(2).position, 20);
    EXPECT_EQ(console.GetColorSpan(2).length, 10);
    EXPECT_EQ(console.GetColorSpan(2).color, 0xFF0000u);
    console.Clear();
    EXPECT_EQ(console.GetColorSpanCount(), 0);
    console.Print("<color:FFFFFF></color>");
    EXPECT_EQ(console.GetColorSpanCount(), 0);

    EXPECT_EQ(Kiv::Console::StringToHex("1aF", 8), 0x1AF);
    EXPECT_EQ(Kiv::Console::StringToHex("-10", 8), -16);
    EXPECT_EQ(Kiv::Console::StringToHex("12345", 3), 0x123);
    EXPECT_EQ(Kiv::Console::StringToHex("fg", 8), 0xF);
    EXPECT_EQ(Kiv::Console::StringToHex("FFFFFFFF", 8), -1);
    EXPECT_EQ(Kiv::Console::StringToHex(nullptr, 8), 0);
}

TEST(Console, BlitToMonoWritesCharactersIntoEvenBytes)
{
    Kiv::Console console = Make(3, 2);
    console.Print("abc\nde\nf");
    std::vector<unsigned char> screen(Kiv::Console::monoLineBytes * Kiv::Console::monoRows, 0x07);
    console.BlitToMono(screen.data());
    const unsigned char expected[] = {'d', 7, 'e', 7, ' ', 7, 7, 7};
    EXPECT_EQ(std::vector<unsigned char>(screen.begin(), screen.begin() + 8),
              std::vector<unsigned char>(expected, expected + 8));
    EXPECT_EQ(screen[160], 'f');
    EXPECT_EQ(screen[162], ' ');
    EXPECT_EQ(screen[161], 7);

    // At a position, cut off at the screen's right and bottom edges.
    std::vector<unsigned char> placed(screen.size(), 0);
    console.BlitToMono44(78, 24, placed.data());
    EXPECT_EQ(placed[24 * 160 + 156], 'd');
    EXPECT_EQ(placed[24 * 160 + 158], 'e');
    EXPECT_EQ(std::count(placed.begin(), placed.end(), 0), static_cast<long>(placed.size()) - 2);
    std::vector<unsigned char> left(screen.size(), 0);
    console.BlitToMono44(-2, -1, left.data());
    EXPECT_EQ(left[0], ' ');
    EXPECT_EQ(std::count(left.begin(), left.end(), 0), static_cast<long>(left.size()) - 1);
}
