#include "Console.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

namespace
{
// The whole grid from its top line, rows joined by '/'.
std::string Grid(const Kiv::Console & console)
{
    std::string grid(console.GetLine(0), console.GetWidth());
    for (int row = 1; row < console.GetHeight(); ++row)
        grid += "/" + std::string(console.GetLine(row), console.GetWidth());
    return grid;
}

// The colour spans as "position+length:colour", in list order.
std::string Spans(const Kiv::Console & console)
{
    std::string spans;
    for (int i = 0; i < console.GetColorSpanCount(); ++i)
    {
        const Kiv::Console::ColorSpan & span = console.GetColorSpan(i);
        char text[40];
        std::snprintf(text, sizeof text, "%s%d+%d:%06X", i == 0 ? "" : " ", span.position, span.length,
                      span.color);
        spans += text;
    }
    return spans;
}

// Checks that every span lies on the grid, covers cells showing the coloured character and
// nothing else does; answers the cells covered.
int CheckSpans(const Kiv::Console & console, char coloured)
{
    const int cells = console.GetWidth() * console.GetHeight();
    // The line nearest the start of the buffer is its first.
    const char * buffer = console.GetLine(0);
    for (int row = 1; row < console.GetHeight(); ++row)
        buffer = std::min(buffer, console.GetLine(row));
    std::vector<int> cover(cells, 0);
    for (int i = 0; i < console.GetColorSpanCount(); ++i)
    {
        const Kiv::Console::ColorSpan & span = console.GetColorSpan(i);
        EXPECT_GT(span.length, 0);
        EXPECT_GE(span.position, 0);
        EXPECT_LE(span.position + span.length, cells) << "span " << i;
        for (int c = std::max(span.position, 0); c < std::min(span.position + span.length, cells); ++c)
            ++cover[c];
    }
    int covered = 0;
    for (int c = 0; c < cells; ++c)
    {
        EXPECT_EQ(cover[c], buffer[c] == coloured ? 1 : 0) << "cell " << c;
        covered += cover[c];
    }
    return covered;
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
    EXPECT_EQ(Grid(console), "abcde/fgh  /     ");

    // The fourth line scrolls the first one out: the top of the ring moves on.
    console.Print("\nline3\nz");
    EXPECT_EQ(Grid(console), "fgh  /line3/z    ");
    console.Print("\n\n\n\nend");
    EXPECT_EQ(Grid(console), "     /     /end  ");

    // Positions outside the grid are held at its edges.
    console.Goto(1, 0);
    console.Print('#', 2);
    console.Goto(99, -4);
    console.Print('!');
    EXPECT_EQ(Grid(console), " ## !/     /end  ");

    console.Clear();
    EXPECT_EQ(Grid(console), "     /     /     ");
    console.Print(42, 4);
    console.Bar(3, 18);
    console.Printf("%s|%03d", "x", 7);
    EXPECT_EQ(Grid(console), "  42\x12/\x12\x12x|0/07   ");

    // Copies own their grid.
    Kiv::Console copy(console);
    console.Clear();
    EXPECT_EQ(Grid(copy), "  42\x12/\x12\x12x|0/07   ");

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
    EXPECT_EQ(Grid(console), "abredcd<b>e<color:  /                    ");
    EXPECT_EQ(Spans(console), "2+3:4080FF");

    // Over-long colours keep their last 8 digits; a new colour ends the open span; a span that
    // covers nothing is dropped; a span continues across the wrap.
    console.Print("<color:123456789ABC><color:00FF00>xy<color:0000ff>0123456789");
    EXPECT_EQ(Spans(console), "2+3:4080FF 18+2:00FF00 20+10:FF0000");
    console.Clear();
    console.Print("<color:FFFFFF></color>");
    EXPECT_EQ(Spans(console), "");

    EXPECT_EQ(Kiv::Console::StringToHex("-10", 8), -16);
    EXPECT_EQ(Kiv::Console::StringToHex("12345", 3), 0x123);
    EXPECT_EQ(Kiv::Console::StringToHex(nullptr, 8), 0);
}

// Screen buffers are sized exactly, so a write past them shows under the address sanitizer.
TEST(Console, BlitToMonoWritesCharactersIntoEvenBytes)
{
    Kiv::Console console = Make(3, 2);
    console.Print("abc\nde\nf");
    std::vector<unsigned char> screen(Kiv::Console::monoLineBytes * 2, 0x07);
    console.BlitToMono(screen.data());
    const unsigned char expected[] = {'d', 7, 'e', 7, ' ', 7, 7, 7};
    EXPECT_EQ(std::vector<unsigned char>(screen.begin(), screen.begin() + 8),
              std::vector<unsigned char>(expected, expected + 8));
    EXPECT_EQ(screen[160], 'f');

    // At a position: cut off at the right edge and above the first line, but not below the 25th.
    std::vector<unsigned char> placed(Kiv::Console::monoLineBytes * 32, 0);
    console.BlitToMono44(78, 30, placed.data());
    EXPECT_EQ(placed[30 * 160 + 156], 'd');
    EXPECT_EQ(placed[30 * 160 + 158], 'e');
    EXPECT_EQ(placed[31 * 160 + 156], 'f');
    EXPECT_EQ(std::count(placed.begin(), placed.end(), 0), static_cast<long>(placed.size()) - 4);
    std::vector<unsigned char> left(Kiv::Console::monoLineBytes, 0);
    console.BlitToMono44(-2, -1, left.data());
    EXPECT_EQ(left[0], ' ');
    EXPECT_EQ(std::count(left.begin(), left.end(), 0), static_cast<long>(left.size()) - 1);
    console.BlitToMono44(INT_MIN, 0, left.data());
    console.BlitToMono44(INT_MAX, 0, left.data());
    EXPECT_EQ(std::count(left.begin(), left.end(), 0), static_cast<long>(left.size()) - 1);

    // A 25 x 10 pane at column 65 of line 28 ends on line 37 of a 50-line display.
    Kiv::Console pane = Make(25, 10);
    pane.Print("0\n1\n2\n3\n4\n5\n6\n7\n8\n9");
    std::vector<unsigned char> display(Kiv::Console::monoLineBytes * 50, 0);
    pane.BlitToMono44(65, 28, display.data());
    EXPECT_EQ(display[28 * 160 + 130], '0');
    EXPECT_EQ(display[37 * 160 + 130], '9');
    EXPECT_EQ(display[37 * 160 + 158], ' ');
    EXPECT_EQ(display[38 * 160 + 130], 0);
}

TEST(Console, ColourSpansFollowTheTextOnTheGrid)
{
    // Coloured text wraps past the last line to the first: the spans stay on the grid.
    Kiv::Console wrapped = Make(10, 3);
    wrapped.Print(("<color:FF0000>" + std::string(45, 'x') + "</color>").c_str());
    EXPECT_EQ(CheckSpans(wrapped, 'x'), 25);

    // A coloured line scrolled away takes its colour with it; the plain text in its place has none.
    Kiv::Console scrolled = Make(10, 2);
    scrolled.Print("<color:00FF00>green</color>\nplain\nwhite");
    EXPECT_EQ(Spans(scrolled), "");

    // A full list where a blanked line splits the first span: the newest spans give way.
    constexpr int maxSpans = Kiv::Console::maxColorSpans;
    Kiv::Console full = Make(20, 4);
    full.Print(("<color:111111>" + std::string(50, 'q')).c_str());
    while (full.GetColorSpanCount() < maxSpans)
    {
        full.Goto(0, 3);
        full.Print('q');
    }
    full.Goto(0, 0);
    full.NewLine();
    ASSERT_EQ(full.GetColorSpanCount(), maxSpans);
    EXPECT_EQ(full.GetColorSpan(0).length, 20);
    EXPECT_EQ(full.GetColorSpan(1).position, 40);
    full.Print("qq");
    EXPECT_EQ(full.GetColorSpanCount(), maxSpans);
    EXPECT_EQ(full.GetColorSpan(maxSpans - 1).position, 60);
    // Indices outside the list give an empty span.
    EXPECT_EQ(full.GetColorSpan(-1).length + full.GetColorSpan(maxSpans).length, 0);
}
