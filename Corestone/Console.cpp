#include "Console.h"

#include "Alloc.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace Kiv
{
namespace
{
// Longest tag text looked at for its closing ">"; anything longer is printed as it stands.
constexpr int maxTagLength = 64;
constexpr char colorTag[] = "color";
constexpr int colorTagLength = sizeof colorTag - 1;

char * AllocateCells(std::int32_t count)
{
    return static_cast<char *>(Alloc::New(static_cast<unsigned int>(count)));
}

void FreeCells(char * cells)
{
    if (cells != nullptr)
    {
        Alloc::Delete(cells);
    }
}

int HexDigit(char c)
{
    if (c >= '0' && c <= '9')
    {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f')
    {
        return c - 'a' + 10;
    }
    if (c >= 'A' && c <= 'F')
    {
        return c - 'A' + 10;
    }
    return -1;
}

bool IsColorWord(const char * text, std::ptrdiff_t length)
{
    return length == colorTagLength && std::memcmp(text, colorTag, colorTagLength) == 0;
}

// Colours are written red, green, blue; spans hold them with red and blue exchanged.
std::uint32_t SwapRedBlue(std::uint32_t color)
{
    return (color & 0xFF00FF00u) | ((color & 0xFFu) << 16) | ((color >> 16) & 0xFFu);
}
} // namespace

Console::Console(const Console & other)
{
    CopyFrom(other);
}

Console & Console::operator=(const Console & other)
{
    if (this != &other)
    {
        Done();
        CopyFrom(other);
    }
    return *this;
}

Console::~Console()
{
    Done();
}

void Console::CopyFrom(const Console & other)
{
    if (other.cells == nullptr)
    {
        return;
    }
    cells = AllocateCells(other.width * other.height);
    if (cells == nullptr)
    {
        return;
    }
    std::memcpy(cells, other.cells, static_cast<std::size_t>(other.width) * other.height);
    width = other.width;
    height = other.height;
    top = other.top;
    line = other.line;
    column = other.column;
    std::copy(other.spans, other.spans + other.spanCount, spans);
    spanCount = other.spanCount;
    spanOpen = other.spanOpen;
    runOpen = other.runOpen;
    openColor = other.openColor;
}

bool Console::Init(const Size & size)
{
    Done();
    if (size.width <= 0 || size.height <= 0 || size.width > maxCells / size.height)
    {
        return false;
    }
    cells = AllocateCells(size.width * size.height);
    if (cells == nullptr)
    {
        return false;
    }
    width = size.width;
    height = size.height;
    Clear();
    return true;
}

void Console::Done()
{
    FreeCells(cells);
    cells = nullptr;
    width = height = 0;
    top = line = column = 0;
    spanCount = 0;
    spanOpen = runOpen = false;
}

void Console::Clear()
{
    if (cells != nullptr)
    {
        std::memset(cells, ' ', static_cast<std::size_t>(width) * height);
    }
    top = line = column = 0;
    spanCount = 0;
    spanOpen = runOpen = false;
}

void Console::Goto(int x, int y)
{
    if (cells == nullptr)
    {
        return;
    }
    column = std::clamp(x, 0, width - 1);
    line = (top + std::clamp(y, 0, height - 1)) % height;
}

void Console::NewLine()
{
    if (cells == nullptr)
    {
        return;
    }
    column = 0;
    line = (line + 1) % height;
    // Reaching the top line scrolls: the oldest line gives way to the new one.
    if (line == top)
    {
        top = (top + 1) % height;
    }
    BlankLine(line);
    UncolorCells(line * width, width);
}

void Console::BlankLine(int ringLine)
{
    std::memset(cells + static_cast<std::size_t>(ringLine) * width, ' ', width);
}

void Console::Put(char c)
{
    if (cells == nullptr)
    {
        return;
    }
    if (column >= width)
    {
        NewLine();
    }
    const std::int32_t position = line * width + column;
    cells[position] = c;
    ++column;
    if (spanOpen)
    {
        ColorCell(position);
    }
}

void Console::PrintChar(char c)
{
    if (c == '\n')
    {
        NewLine();
    }
    else
    {
        Put(c);
    }
}

void Console::Print(char c, int count)
{
    for (int i = 0; i < count; ++i)
    {
        PrintChar(c);
    }
}

void Console::Print(int value, int fieldWidth)
{
    Printf("%*d", std::clamp(fieldWidth, 0, 64), value);
}

void Console::Print(const char * text)
{
    if (text == nullptr)
    {
        return;
    }
    while (*text != '\0')
    {
        const int used = *text == '<' ? Tag(text) : 0;
        if (used > 0)
        {
            text += used;
        }
        else
        {
            PrintChar(*text++);
        }
    }
}

void Console::Printf(const char * format, ...)
{
    if (format == nullptr)
    {
        return;
    }
    char buffer[1024];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(buffer, sizeof buffer, format, arguments);
    va_end(arguments);
    Print(buffer);
}

void Console::Bar(int length, int glyph)
{
    for (int i = 0; i < length; ++i)
    {
        Put(static_cast<char>(glyph));
    }
}

int Console::Tag(const char * text)
{
    const char * body = text + 1;
    const char * close = body;
    while (*close != '\0' && *close != '>' && close - body < maxTagLength)
    {
        ++close;
    }
    if (*close != '>')
    {
        return 0;
    }
    const int used = static_cast<int>(close - text) + 1;
    if (*body == '/' && IsColorWord(body + 1, close - body - 1))
    {
        CloseSpan();
        return used;
    }
    const char * colon = std::find(body, close, ':');
    if (colon == close || !IsColorWord(body, colon - body))
    {
        return 0;
    }
    // At most the last 8 digits count, so an over-long colour keeps its low (blue) end.
    const char * digits = std::max(colon + 1, close - 8);
    OpenSpan(SwapRedBlue(static_cast<std::uint32_t>(StringToHex(digits, static_cast<int>(close - digits)))));
    return used;
}

void Console::OpenSpan(std::uint32_t color)
{
    CloseSpan();
    spanOpen = true;
    openColor = color;
}

void Console::CloseSpan()
{
    spanOpen = runOpen = false;
}

// A cell next to the open run lengthens it; any other cell (after a Goto, a line feed or the ring
// wrapping to its first line) starts a new run, so a span never reaches past the buffer.
void Console::ColorCell(std::int32_t position)
{
    ColorSpan * run = runOpen ? &spans[spanCount - 1] : nullptr;
    if (run != nullptr && run->position + run->length == position)
    {
        ++run->length;
        return;
    }
    runOpen = spanCount < maxColorSpans;
    if (runOpen)
    {
        spans[spanCount++] = {position, 1, openColor};
    }
}

// Blanked cells lose their colour: a span keeps what lies before and after them, in order, while
// the list has room (a split span needs one more entry; spans beyond the room are dropped).
void Console::UncolorCells(std::int32_t first, std::int32_t count)
{
    const std::int32_t end = first + count;
    const auto touches = [&](const ColorSpan & span)
    { return span.position < end && span.position + span.length > first; };
    if (std::none_of(spans, spans + spanCount, touches))
    {
        return;
    }
    ColorSpan kept[maxColorSpans];
    std::int32_t keptCount = 0;
    const auto keep = [&](const ColorSpan & span)
    {
        const bool room = span.length > 0 && keptCount < maxColorSpans;
        if (room)
        {
            kept[keptCount++] = span;
        }
        return room;
    };
    bool lastKeptWhole = false;
    for (std::int32_t i = 0; i < spanCount; ++i)
    {
        const ColorSpan & span = spans[i];
        if (!touches(span))
        {
            lastKeptWhole = keep(span);
            continue;
        }
        lastKeptWhole = false;
        const std::int32_t spanEnd = span.position + span.length;
        keep({span.position, std::max(first - span.position, 0), span.color});
        keep({end, std::max(spanEnd - end, 0), span.color});
    }
    // The open run grows on only while it is still the last span, whole.
    runOpen = runOpen && lastKeptWhole;
    std::copy(kept, kept + keptCount, spans);
    spanCount = keptCount;
}

const Console::ColorSpan & Console::GetColorSpan(int i) const
{
    static const ColorSpan none = {0, 0, 0};
    return i >= 0 && i < spanCount ? spans[i] : none;
}

std::int32_t Console::StringToHex(const char * text, int maxDigits)
{
    if (text == nullptr)
    {
        return 0;
    }
    const bool negative = *text == '-';
    text += negative ? 1 : 0;
    std::uint32_t value = 0;
    for (int i = 0; i < maxDigits && HexDigit(text[i]) >= 0; ++i)
    {
        value = value * 16 + static_cast<std::uint32_t>(HexDigit(text[i]));
    }
    return static_cast<std::int32_t>(negative ? 0u - value : value);
}

const char * Console::GetLine(int row) const
{
    if (cells == nullptr || row < 0 || row >= height)
    {
        return nullptr;
    }
    return cells + static_cast<std::size_t>((top + row) % height) * width;
}

Point Console::GetCursor() const
{
    return {column, height == 0 ? 0 : (line - top + height) % height};
}

void Console::BlitToMono(unsigned char * screen) const
{
    BlitToMono44(0, 0, screen);
}

void Console::BlitToMono44(int x, int y, unsigned char * screen) const
{
    if (screen == nullptr || x >= monoColumns || x <= -width)
    {
        return;
    }
    const int first = std::max(0, -x);
    const int last = std::min(width, monoColumns - x);
    // Lines above the buffer are skipped; below it, the buffer is the caller's to size.
    for (int row = y >= 0 ? 0 : (y > -height ? -y : height); row < height; ++row)
    {
        const auto lineStart = static_cast<std::ptrdiff_t>((std::int64_t(y) + row) * monoLineBytes);
        const char * source = GetLine(row);
        for (int c = first; c < last; ++c)
        {
            screen[lineStart + 2 * (x + c)] = static_cast<unsigned char>(source[c]);
        }
    }
}
} // namespace Kiv
