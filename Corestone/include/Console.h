// A character-grid text console for on-screen statistics. Its lines form a ring: printing past the
// last line scrolls by moving the top line. Printed text may carry colour tags,
// "<color:RRGGBB>text</color>", which become colour spans over the grid; the grid can be copied
// into a monochrome text-mode screen buffer.
#pragma once

#include "KivApi.h"
#include "Rect.h"

#include <cstdint>

namespace Kiv
{
class KIV_API Console
{
public:
    // A run of grid cells, counted from the start of the buffer, drawn in one colour (0xBBGGRR).
    struct ColorSpan
    {
        std::int32_t position;
        std::int32_t length;
        std::uint32_t color;
    };

    static constexpr int maxColorSpans = 256;
    // A text-mode screen line: 80 cells of two bytes (character, attribute).
    static constexpr int monoColumns = 80;
    static constexpr int monoLineBytes = monoColumns * 2;
    // Grids beyond this many cells are refused rather than allocated.
    static constexpr std::int32_t maxCells = 1 << 20;

    Console() = default;
    Console(const Console & other);
    Console & operator=(const Console & other);
    ~Console();

    // Allocates a blank grid; false (and no grid) for an empty or absurd size.
    bool Init(const Size & size);
    void Done();

    void Clear();
    // Moves the cursor to a cell counted from the top line shown; positions are clamped to the grid.
    void Goto(int x, int y);
    void NewLine();
    void Print(char c, int count = 1);
    // The number, right-aligned in a field of the given width.
    void Print(int value, int fieldWidth);
    void Print(const char * text);
    void Printf(const char * format, ...);
    // A bar of the given length drawn with the glyph (a character code of the console's font).
    void Bar(int length, int glyph);

    // Hexadecimal digits of either case up to a non-digit or the limit; a leading minus negates.
    static std::int32_t StringToHex(const char * text, int maxDigits);

    // Copies the grid, top line first, into a text-mode buffer of 160-byte lines: characters in
    // the even bytes, attributes left as they are. The buffer holds at least as many lines as
    // the grid reaches down (y + height); columns beyond the 80th and lines above the first
    // are cut off.
    void BlitToMono(unsigned char * screen) const;
    void BlitToMono44(int x, int y, unsigned char * screen) const;

    int GetWidth() const { return width; }
    int GetHeight() const { return height; }
    // The characters of a line counted from the top line shown (width of them, no terminator).
    const char * GetLine(int row) const;
    Point GetCursor() const;
    // Spans cover cells still on the grid, each a run of consecutive cells in the buffer; a span
    // index out of range gives an empty span.
    int GetColorSpanCount() const { return spanCount; }
    const ColorSpan & GetColorSpan(int i) const;

private:
    void Put(char c);
    void PrintChar(char c);
    void BlankLine(int line);
    // Handles the tag starting at text; returns the characters it used, 0 when it is no tag.
    int Tag(const char * text);
    void OpenSpan(std::uint32_t color);
    void CloseSpan();
    void ColorCell(std::int32_t position);
    // Takes the cells first .. first + count - 1 out of every span.
    void UncolorCells(std::int32_t first, std::int32_t count);
    void CopyFrom(const Console & other);

    char * cells = nullptr;
    std::int32_t width = 0;
    std::int32_t height = 0;
    // The ring line shown at the top, and the cursor's line (in the ring) and column.
    std::int32_t top = 0;
    std::int32_t line = 0;
    std::int32_t column = 0;
    ColorSpan spans[maxColorSpans] = {};
    std::int32_t spanCount = 0;
    // While a colour tag is open, printed cells take its colour; the last span is the run that
    // grows while runOpen is set.
    bool spanOpen = false;
    bool runOpen = false;
    std::uint32_t openColor = 0;
};
} // namespace Kiv
