// The configuration text scanner. Before the header only blanks, comments and "version" may
// appear; after it, tokens. A ":" standing alone opens a run of hex digit pairs closed by ";".
// Numbers, words and the ":" compete by longest match, so a run that only begins like a number
// (1e5, 1.0f) or like the colon (:x) is a word; a token's first character alone decides the
// strings and comments.
//
// The source is read in place: every read is checked against the end, which reads as a NUL, so
// the text needs no terminator and nothing past it is touched.
#include "ConfigGrammerNew.h"

#include "Alloc.h"
#include "ConfigGrammerNew.tab.hpp"

#include <cstring>
#include <new>

namespace Kiv
{
/*!re2c
    re2c:api = custom;
    re2c:api:style = free-form;
    re2c:define:YYCTYPE = "unsigned char";
    re2c:define:YYPEEK = "(cur < lim ? static_cast<unsigned char>(*cur) : 0)";
    re2c:define:YYSKIP = "++cur;";
    re2c:define:YYBACKUP = "mark = cur;";
    re2c:define:YYRESTORE = "cur = mark;";
    re2c:define:YYLESSTHAN = "lim - cur < @@{len}";
    re2c:yyfill:enable = 0;
    re2c:eof = 0;
    re2c:indent:string = "    ";

    blank = [ \t\r]+;
    lineComment = ("//" | "#") [^\n]*;
    hexDigit = [0-9a-fA-F];
    intNumber = [+-]? [0-9]+ | "0x" hexDigit+;
    floatNumber = [+-]? ([0-9]+ "." [0-9]* | "." [0-9]+) ([eE] [+-]? [0-9]+)?;
    wordChar = [^ \t\r\n=;{}(),"\\\x00];
    word = (wordChar \ [`#/]) wordChar* | "/" | "/" (wordChar \ [*/]) wordChar*;
*/

// Decoded strings are kept in blocks that live as long as the scanner, so a string's value stays
// valid however long the parser holds it.
struct scfgFlexLexer::Block
{
    Block * next;
    uint32_t used;
    uint32_t size;

    char * Bytes() { return reinterpret_cast<char *>(this + 1); }
};

namespace
{
constexpr uint32_t blockSize = 64 * 1024 - sizeof(void *) * 4;

int HexValue(char digit)
{
    if (digit <= '9')
        return digit - '0';
    return (digit | 0x20) - 'a' + 10;
}
} // namespace

scfgFlexLexer::scfgFlexLexer(const char * source, uint32_t size) : cursor(source), limit(source + size) {}

scfgFlexLexer::~scfgFlexLexer()
{
    while (blocks != nullptr)
    {
        Block * next = blocks->next;
        Alloc::Delete(blocks);
        blocks = next;
    }
    if (hex != nullptr)
        Alloc::Delete(hex);
}

int scfgFlexLexer::Lex(ConfigValue & value)
{
    switch (state)
    {
    case State::Header:
        return LexInitial();
    case State::Hex:
        return LexHex(value);
    case State::HexEnd:
        state = State::Main;
        return Emit(value, CFG_SC, cursor, cursor + 1);
    case State::Finished:
        return 0;
    default:
        return LexMain(value);
    }
}

ConfigText scfgFlexLexer::LastToken() const
{
    if (state == State::Finished)
        return ConfigText{nullptr, 0};
    return ConfigText{token, static_cast<uint32_t>(cursor - token)};
}

int scfgFlexLexer::Emit(ConfigValue & value, int code, const char * first, const char * last)
{
    token = first;
    cursor = last;
    value.text = ConfigText{first, static_cast<uint32_t>(last - first)};
    return code;
}

int scfgFlexLexer::LexInitial()
{
    const char * cur = cursor;
    const char * const lim = limit;
    const char * mark = cur;
    for (;;)
    {
        token = cursor = cur;
        /*!re2c
            $ { state = State::Finished; return 0; }
            blank { continue; }
            "\n" { ++line; continue; }
            lineComment { continue; }
            "/*" { cur = SkipComment(cur); if (cur == nullptr) return -1; continue; }
            "version" { cursor = cur; state = State::Main; return CFG_VERSION; }
            * { cursor = cur; return -1; }
        */
    }
}

int scfgFlexLexer::LexMain(ConfigValue & value)
{
    const char * cur = cursor;
    const char * const lim = limit;
    for (;;)
    {
        const char * const first = cur;
        /*!re2c
            $ { token = cursor = cur; state = State::Finished; return 0; }
            blank { continue; }
            "\n" { ++line; continue; }
            lineComment { continue; }
            "/*" { token = cursor = first; cur = SkipComment(cur); if (cur == nullptr) return -1; continue; }
            "=" { return Emit(value, CFG_ASSIGN, first, cur); }
            "{" { Emit(value, CFG_START, first, cur); value.node = nullptr; return CFG_START; }
            "}" { return Emit(value, CFG_END, first, cur); }
            "(" { return Emit(value, CFG_OPEN, first, cur); }
            ")" { return Emit(value, CFG_CLOSE, first, cur); }
            ";" { return Emit(value, CFG_SC, first, cur); }
            "," { return Emit(value, CFG_COMMA, first, cur); }
            ":" { state = State::Hex; return Emit(value, CFG_RAWASSIGN, first, cur); }
            ["`] { return LexQuoted(value, first, *first); }
            [+-]? "1.#INF" { return Emit(value, CFG_FLOATINF, first, cur); }
            [+-]? "1.#QNAN" { return Emit(value, CFG_FLOATQNAN, first, cur); }
            [+-]? "1.#IND" { return Emit(value, CFG_FLOATIND, first, cur); }
            intNumber { return Emit(value, CFG_INT, first, cur); }
            floatNumber { return Emit(value, CFG_FLOAT, first, cur); }
            word { return Emit(value, CFG_STRING, first, cur); }
            * { return Emit(value, CFG_SCFGUNDEF, first, cur); }
        */
    }
}

// The run after the opening quote up to the closing one; a backslash escapes the character after
// it, so neither kind of quote ends the run when escaped.
int scfgFlexLexer::LexQuoted(ConfigValue & value, const char * first, char close)
{
    token = first;
    const char * cur = first + 1;
    const char * const lim = limit;
    bool escaped = false;
    for (; cur < lim && *cur != close; ++cur)
    {
        if (*cur == '\\' && lim - cur > 1)
        {
            escaped = true;
            ++cur;
        }
        if (*cur == '\n')
            ++line;
    }
    cursor = cur;
    if (cur == lim)
        return -1;
    cursor = cur + 1;
    value.text = escaped ? Decode(first + 1, cur) : ConfigText{first + 1, static_cast<uint32_t>(cur - first - 1)};
    return CFG_STRING;
}

ConfigText scfgFlexLexer::Decode(const char * from, const char * to)
{
    char * out = Reserve(static_cast<uint32_t>(to - from));
    char * next = out;
    while (from < to)
    {
        char character = *from++;
        if (character == '\\')
        {
            static const char escapes[] = "t\tr\rn\nb\b\"\"\\\\``";
            const char * escape = std::strchr(escapes, *from);
            if (*from != 0 && escape != nullptr && (escape - escapes) % 2 == 0)
            {
                character = escape[1];
                ++from;
            }
        }
        *next++ = character;
    }
    blocks->used += static_cast<uint32_t>(next - out);
    return ConfigText{out, static_cast<uint32_t>(next - out)};
}

ConfigText scfgFlexLexer::Join(ConfigText first, ConfigText second)
{
    // A run of strings grows at the end of the newest block, where the first part already lies
    // when it was decoded or joined last.
    const uint32_t length = first.length + second.length;
    const char * top = blocks != nullptr ? blocks->Bytes() + blocks->used : nullptr;
    if (first.text + first.length == second.text && second.text + second.length == top)
        return ConfigText{first.text, length};
    if (first.text + first.length == top && blocks->size - blocks->used >= second.length)
    {
        std::memcpy(blocks->Bytes() + blocks->used, second.text, second.length);
        blocks->used += second.length;
        return ConfigText{first.text, length};
    }
    char * out = Reserve(length);
    std::memcpy(out, first.text, first.length);
    std::memcpy(out + first.length, second.text, second.length);
    blocks->used += length;
    return ConfigText{out, length};
}

// Room for size bytes at the end of the newest block; the caller counts what it used.
char * scfgFlexLexer::Reserve(uint32_t size)
{
    if (blocks == nullptr || blocks->size - blocks->used < size)
    {
        const uint32_t room = size > blockSize ? size : blockSize;
        auto * block = static_cast<Block *>(Alloc::New(static_cast<uint32_t>(sizeof(Block)) + room));
        if (block == nullptr)
            throw std::bad_alloc();
        *block = Block{blocks, 0, room};
        blocks = block;
    }
    return blocks->Bytes() + blocks->used;
}

void scfgFlexLexer::AddHex(unsigned char byte)
{
    if (hexCount == hexRoom)
    {
        const uint32_t room = hexRoom != 0 ? 2 * hexRoom : 256;
        auto * larger = static_cast<unsigned char *>(Alloc::New(room));
        if (larger == nullptr)
            throw std::bad_alloc();
        if (hex != nullptr)
        {
            std::memcpy(larger, hex, hexCount);
            Alloc::Delete(hex);
        }
        hex = larger;
        hexRoom = room;
    }
    hex[hexCount++] = byte;
}

// Hex digit pairs up to the ";", which is delivered as a token of its own next.
int scfgFlexLexer::LexHex(ConfigValue & value)
{
    hexCount = 0;
    const char * cur = cursor;
    const char * const lim = limit;
    for (;;)
    {
        const char * const first = cur;
        /*!re2c
            blank { continue; }
            "\n" { ++line; continue; }
            "//" [^\n]* { continue; }
            hexDigit hexDigit { AddHex(static_cast<unsigned char>(HexValue(first[0]) << 4 | HexValue(first[1]))); continue; }
            ";" { break; }
            * { token = first; cursor = cur; return -1; }
            $ { token = cursor = cur; return -1; }
        */
    }
    // The ";" is read again as a token of its own.
    state = State::HexEnd;
    Emit(value, CFG_HEXSTRING, cursor, cur - 1);
    value.text = ConfigText{reinterpret_cast<const char *>(hex), hexCount};
    return CFG_HEXSTRING;
}

// A block comment from after its "/*" to past its "*/"; null when the text ends first.
const char * scfgFlexLexer::SkipComment(const char * from)
{
    for (; from < limit; ++from)
    {
        if (*from == '\n')
            ++line;
        else if (*from == '*' && limit - from > 1 && from[1] == '/')
            return from + 2;
    }
    return nullptr;
}
} // namespace Kiv
