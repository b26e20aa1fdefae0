// The configuration text scanner. Before the header only blanks, comments and "version" may
// appear; after it, tokens. A ":" opens a run of hex digit pairs closed by ";". Numbers and bare
// words compete by longest match, so a run that only begins like a number (1e5, 1.0f) is a word;
// a token's first character alone decides the strings, comments and ":".
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
    re2c:define:YYPEEK = "(cursor < limit ? static_cast<unsigned char>(*cursor) : 0)";
    re2c:define:YYSKIP = "++cursor;";
    re2c:define:YYBACKUP = "marker = cursor;";
    re2c:define:YYRESTORE = "cursor = marker;";
    re2c:define:YYLESSTHAN = "limit - cursor < @@{len}";
    re2c:yyfill:enable = 0;
    re2c:eof = 0;
    re2c:indent:string = "    ";

    blank = [ \t\r]+;
    lineComment = ("//" | "#") [^\n]*;
    hexDigit = [0-9a-fA-F];
    intNumber = [+-]? [0-9]+ | "0x" hexDigit+;
    floatNumber = [+-]? ([0-9]+ "." [0-9]* | "." [0-9]+) ([eE] [+-]? [0-9]+)?;
    wordChar = [^ \t\r\n=;{}(),"\\\x00];
    word = (wordChar \ [`:#/]) wordChar* | "/" | "/" (wordChar \ [*/]) wordChar*;
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
        token = cursor++;
        return Token(value, CFG_SC);
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

int scfgFlexLexer::Token(ConfigValue & value, int code)
{
    value.text = ConfigText{token, static_cast<uint32_t>(cursor - token)};
    return code;
}

int scfgFlexLexer::LexInitial()
{
    for (;;)
    {
        token = cursor;
        /*!re2c
            $ { state = State::Finished; return 0; }
            blank { continue; }
            "\n" { ++line; continue; }
            lineComment { continue; }
            "/*" { if (!SkipComment()) return -1; continue; }
            "version" { state = State::Main; return CFG_VERSION; }
            * { return -1; }
        */
    }
}

int scfgFlexLexer::LexMain(ConfigValue & value)
{
    for (;;)
    {
        token = cursor;
        /*!re2c
            $ { state = State::Finished; return 0; }
            blank { continue; }
            "\n" { ++line; continue; }
            lineComment { continue; }
            "/*" { if (!SkipComment()) return -1; continue; }
            "=" { return Token(value, CFG_ASSIGN); }
            "{" { value.node = nullptr; return CFG_START; }
            "}" { return Token(value, CFG_END); }
            "(" { return Token(value, CFG_OPEN); }
            ")" { return Token(value, CFG_CLOSE); }
            ";" { return Token(value, CFG_SC); }
            "," { return Token(value, CFG_COMMA); }
            ":" { state = State::Hex; return Token(value, CFG_RAWASSIGN); }
            ["`] { return LexQuoted(value, *token); }
            [+-]? "1.#INF" { return Token(value, CFG_FLOATINF); }
            [+-]? "1.#QNAN" { return Token(value, CFG_FLOATQNAN); }
            [+-]? "1.#IND" { return Token(value, CFG_FLOATIND); }
            intNumber { return Token(value, CFG_INT); }
            floatNumber { return Token(value, CFG_FLOAT); }
            word { return Token(value, CFG_STRING); }
            * { return Token(value, CFG_SCFGUNDEF); }
        */
    }
}

// The run after the opening quote up to the closing one; a backslash escapes the character after
// it, so neither kind of quote ends the run when escaped.
int scfgFlexLexer::LexQuoted(ConfigValue & value, char close)
{
    const char * first = cursor;
    bool escaped = false;
    for (; cursor < limit && *cursor != close; ++cursor)
    {
        if (*cursor == '\\' && limit - cursor > 1)
        {
            escaped = true;
            ++cursor;
        }
        if (*cursor == '\n')
            ++line;
    }
    if (cursor == limit)
        return -1;
    const char * last = cursor++;
    value.text = escaped ? Decode(first, last) : ConfigText{first, static_cast<uint32_t>(last - first)};
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

// Hex digit pairs up to the ";", which is delivered as a token of its own next.
int scfgFlexLexer::LexHex(ConfigValue & value)
{
    hex.RemoveAll();
    const char * first = cursor;
    for (;;)
    {
        token = cursor;
        /*!re2c
            blank { continue; }
            "\n" { ++line; continue; }
            "//" [^\n]* { continue; }
            hexDigit hexDigit {
                hex.Add(static_cast<unsigned char>(HexValue(token[0]) << 4 | HexValue(token[1])));
                continue;
            }
            ";" { break; }
            * { return -1; }
            $ { return -1; }
        */
    }
    // The ";" is read again as a token of its own.
    --cursor;
    token = first;
    value.text = ConfigText{reinterpret_cast<const char *>(hex.GetData()), static_cast<uint32_t>(hex.GetCount())};
    state = State::HexEnd;
    return CFG_HEXSTRING;
}

// A block comment from after its "/*" to its "*/"; false when the text ends first.
bool scfgFlexLexer::SkipComment()
{
    for (; cursor < limit; ++cursor)
    {
        if (*cursor == '\n')
            ++line;
        else if (*cursor == '*' && limit - cursor > 1 && cursor[1] == '/')
        {
            cursor += 2;
            return true;
        }
    }
    return false;
}
} // namespace Kiv
