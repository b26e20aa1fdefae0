// The inner parts of the configuration text reader, shared by the scanner, the grammar and
// Kiv::ConfigParser: the values tokens and rules carry, the scanner (scfgFlexLexer) and the builder
// whose calls make the tree as the grammar's rules are reduced.
#pragma once

#include "ConfigData.h"
#include "DynamicArray.h"
#include "PString.h"
#include "String.h"

#include <cstdint>

namespace Kiv
{
// A piece of text: a slice of the source, or text the scanner decoded and keeps for the whole
// parse. Never NUL-terminated.
struct ConfigText
{
    const char * text;
    uint32_t length;
};

// One element of a list, typed by the token it came from.
struct ConfigItem
{
    enum Kind : int32_t
    {
        KIND_FLOAT = 5,
        KIND_INT = 10,
        KIND_STRING = 15
    };

    int32_t kind;
    union
    {
        int32_t integer;
        uint32_t floatBits; // floats travel as bits, so a NaN keeps its payload on every target
        ConfigText text;
    };
};

// The value of every token and rule of the grammar. A list under construction has no value of its
// own: only one can be open at a time, and the builder holds its items.
union ConfigValue
{
    ConfigText text;
    ConfigItem item;
    ConfigData * node;
};

// The configuration scanner. It reads the source in place and never past its end; decoded strings
// live in blocks it keeps until it is destroyed.
class scfgFlexLexer
{
public:
    scfgFlexLexer(const char * source, uint32_t size);
    ~scfgFlexLexer();
    scfgFlexLexer(const scfgFlexLexer &) = delete;
    scfgFlexLexer & operator=(const scfgFlexLexer &) = delete;

    // The next token's code with its value in value; 0 at the end of the text and -1 for text no
    // token begins with.
    int Lex(ConfigValue & value);
    // The line the scanner has reached, from 1.
    int Line() const { return line; }
    // The text of the token read last, or null after the end of the text.
    ConfigText LastToken() const;
    // The two texts as one, kept for the rest of the parse.
    ConfigText Join(ConfigText first, ConfigText second);

private:
    struct Block;

    int LexInitial();
    int LexMain(ConfigValue & value);
    int LexQuoted(ConfigValue & value, const char * first, char close);
    int LexHex(ConfigValue & value);
    const char * SkipComment(const char * from);
    int Emit(ConfigValue & value, int code, const char * first, const char * last);
    void AddHex(unsigned char byte);
    ConfigText Decode(const char * from, const char * to);
    char * Reserve(uint32_t size);

    // Where the next token starts; the scanning functions keep their position in locals, so the
    // compiler holds it in a register, and store it here when they return.
    const char * cursor;
    const char * limit;
    const char * token = nullptr;
    int line = 1;
    enum class State : uint8_t
    {
        Header,   // before "version"
        Main,     // tokens
        Hex,      // the digits after a ":"
        HexEnd,   // the ";" that closed them
        Finished, // the end of the text was reported
    } state = State::Header;
    // The bytes of the hex run read last; its value is consumed before another one is read.
    unsigned char * hex = nullptr;
    uint32_t hexCount = 0;
    uint32_t hexRoom = 0;
    Block * blocks = nullptr;
};

// The pooled strings of one parse. Names and values repeat through a text, so each distinct text
// goes to the process-wide pool once and every repeat is a copy of the handle kept here.
class ConfigNames
{
public:
    ConfigNames() = default;
    ~ConfigNames();
    ConfigNames(const ConfigNames &) = delete;
    ConfigNames & operator=(const ConfigNames &) = delete;

    // The null string for a text too long to pool.
    const PString & Intern(ConfigText text);

private:
    // The hash and length are kept beside the handle, so a probe reads no pooled node but the one
    // that matches.
    struct Entry
    {
        uint32_t hash;
        uint32_t length;
        PString text;
    };
    void Grow();
    void Release();

    Entry * entries = nullptr;
    uint32_t mask = 0;
    uint32_t count = 0;
    PString none;
};

// Makes the tree as the grammar's rules are reduced, and keeps the first error.
class ConfigBuilder
{
public:
    ConfigBuilder(ConfigData & root, float & version) : root(root), version(version) {}

    ConfigData * Root() { return &root; }
    void SetVersion(ConfigText number);

    // A new unnamed node: empty, or holding one value.
    static ConfigData * NewNode();
    static ConfigData * IntNode(ConfigText number);
    static ConfigData * FloatNode(uint32_t bits);
    ConfigData * StringNode(ConfigText text);
    static ConfigData * ByteNode(ConfigText bytes);
    ConfigData * ArrayNode();
    ConfigData * Named(ConfigData * node, ConfigText name);
    ConfigData * Block(ConfigData * block, ConfigText name, ConfigText value);
    // Starts the children of a block; at the top level the list is the root itself, so the nodes
    // read before an error stay in the tree.
    ConfigData * FirstChild(ConfigData * list, ConfigData * child);
    static ConfigData * AddChild(ConfigData * list, ConfigData * child);
    // Deletes a node the parser pops while it unwinds after an error.
    void Discard(ConfigData * node);

    static ConfigItem IntItem(ConfigText number);
    static ConfigItem FloatItem(uint32_t bits);
    static ConfigItem StringItem(ConfigText text);
    void StartList(const ConfigItem & item);
    void AddItem(const ConfigItem & item);

    static uint32_t FloatBits(ConfigText number);
    // The special floats: infinity, the indefinite and the quiet NaN, negative with a "-".
    static uint32_t InfinityBits(ConfigText lexeme);
    static uint32_t IndefiniteBits(ConfigText lexeme);
    static uint32_t QuietNanBits(ConfigText lexeme);

    void SyntaxError(int line, ConfigText token);
    void ScanError(int line);
    int ErrorLine() const { return errorLine; }
    const AnsiString & ErrorMessage() const { return errorMessage; }

private:
    int32_t ListKind() const;
    void FillInts(ConfigData & node) const;
    void FillFloats(ConfigData & node) const;
    void FillStrings(ConfigData & node);

    ConfigNames names;
    ConfigData & root;
    float & version;
    DynamicArray<ConfigItem, 64> items;
    int errorLine = 0;
    AnsiString errorMessage;
};

// Numbers as the engine's runtime reads them, the same on every target: strtol with base 0 kept
// to 32 bits, and atof's decimal forms. Both read a leading part of the text and stop at the first
// character that does not continue it.
namespace ConfigNumber
{
int32_t ReadInt(const char * text, uint32_t length);
double ReadFloat(const char * text, uint32_t length);
} // namespace ConfigNumber
} // namespace Kiv

// The grammar: parses the scanner's tokens into the builder's tree; 0 on success.
int scfgparse(Kiv::scfgFlexLexer & scanner, Kiv::ConfigBuilder & builder);
