#include "ConfigCorpus.h"

#include <cstdio>
#include <random>

namespace ConfigCorpus
{
namespace
{
const char * const keys[] = {"position", "rotation", "scale", "color",  "texture",  "mesh",  "material",
                             "speed",    "radius",   "name",  "mass",   "friction", "lod",   "offset",
                             "count",    "flags",    "sound", "script", "target",   "weight"};
const char * const blockKeys[] = {"object", "entity", "light", "emitter", "layer", "node", "group", "track"};
const char * const words[] = {"stone", "wall",   "grass", "metal", "door",  "torch", "water", "sky",
                              "crate", "barrel", "lamp",  "rope",  "glass", "cloth", "sand",  "ember"};

template <size_t N>
const char * Pick(const char * const (&list)[N], uint32_t draw)
{
    return list[draw % N];
}

class Maker
{
public:
    explicit Maker(uint32_t seed) : random(seed) {}

    Node Block(const std::string & name, int level, int depth)
    {
        Node block{Node::BLOCK, name, {}, {}};
        const int scalars = 3 + Below(6);
        for (int i = 0; i < scalars; ++i)
            block.children.push_back(Scalar(std::string(Pick(keys, Draw())) + "_" + std::to_string(i)));
        const int blocks = level < depth ? 1 + Below(3) : 0;
        for (int i = 0; i < blocks; ++i)
            block.children.push_back(Block(
                std::string(Pick(blockKeys, Draw())) + "_" + std::to_string(scalars + i), level + 1, depth));
        return block;
    }

private:
    uint32_t Draw() { return static_cast<uint32_t>(random()); }
    int Below(int n) { return static_cast<int>(Draw() % static_cast<uint32_t>(n)); }

    Node Scalar(const std::string & name)
    {
        const int kind = Below(100);
        if (kind < 25)
            return {Node::INT, name, {Int()}, {}};
        if (kind < 50)
            return {Node::FLOAT, name, {Float()}, {}};
        if (kind < 70)
            return {Node::STRING, name, {Text()}, {}};
        if (kind < 80)
            return Array(Node::INT_ARRAY, name, 4 + Below(21), &Maker::Int);
        if (kind < 92)
            return Array(Node::FLOAT_ARRAY, name, Below(2) ? 3 + Below(2) : 8 + Below(9), &Maker::Float);
        return Array(Node::STRING_ARRAY, name, 2 + Below(5), &Maker::Text);
    }

    Node Array(Node::Kind kind, const std::string & name, int count, std::string (Maker::*item)())
    {
        Node array{kind, name, {}, {}};
        for (int i = 0; i < count; ++i)
            array.values.push_back((this->*item)());
        return array;
    }

    std::string Int() { return std::to_string(Below(4) == 0 ? Below(256) : Below(200001) - 100000); }

    std::string Float()
    {
        char text[32];
        if (Below(10) < 7)
            snprintf(text, sizeof(text), "%.6f", (Below(2000001) - 1000000) / 1000.0);
        else
            snprintf(text, sizeof(text), "%.5e", (1 + Below(99999)) * 1e-9);
        return text;
    }

    // Paths, texts with blanks, and texts that need escapes: quotes, line feeds, backslashes.
    std::string Text()
    {
        const std::string word = Pick(words, Draw());
        const std::string other = Pick(words, Draw());
        switch (Below(5))
        {
        case 0:
            return "textures/" + word + "_" + std::to_string(Below(1000)) + ".tga";
        case 1:
            return word + " " + other + " " + std::to_string(Below(100));
        case 2:
            return "say \"" + word + "\"\nthen " + other;
        case 3:
            return "C:\\data\\" + word + "\\" + other + ".wav";
        default:
            return word;
        }
    }

    std::mt19937 random;
};

// The escapes every syntax here shares for the characters the generator puts in strings.
std::string Quoted(const std::string & text)
{
    std::string quoted = "\"";
    for (char c : text)
    {
        if (c == '\n')
            quoted += "\\n";
        else
        {
            if (c == '"' || c == '\\')
                quoted += '\\';
            quoted += c;
        }
    }
    return quoted + "\"";
}

// What sets the syntaxes with one nesting form apart; TOML's tables are written by Toml below.
struct Style
{
    const char * newline;
    const char * assign;
    const char * end; // after a scalar or array
    const char * arrayOpen;
    const char * arraySeparator;
    const char * arrayClose;
    const char * blockOpen; // after the name
    const char * blockClose;
    bool braceLine; // the opening brace on a line of its own
    bool quoteNames;
    bool commas; // entries separated by commas, as JSON's
};

const Style kivStyle = {"\r\n", " = ", ";", "", ",", "", "", "}", true, false, false};
const Style libconfigStyle = {"\n", " = ", ";", "[", ", ", "]", " = {", "};", false, false, false};
const Style yamlStyle = {"\n", ": ", "", "[", ", ", "]", ":", "", false, false, false};
const Style jsonStyle = {"\n", ": ", "", "[", ", ", "]", ": {", "}", false, true, true};

std::string Value(const Node & node, const char * open, const char * separator, const char * close)
{
    const bool strings = node.kind == Node::STRING || node.kind == Node::STRING_ARRAY;
    const bool array = node.kind >= Node::INT_ARRAY;
    std::string text = array ? open : "";
    for (size_t i = 0; i < node.values.size(); ++i)
        text += (i ? separator : "") + (strings ? Quoted(node.values[i]) : node.values[i]);
    return text + (array ? close : "");
}

void Nested(const Node & block, const Style & style, int level, std::string & out)
{
    const std::string indent(2 * static_cast<size_t>(level), ' ');
    for (size_t i = 0; i < block.children.size(); ++i)
    {
        const Node & node = block.children[i];
        out += indent + (style.quoteNames ? Quoted(node.name) : node.name);
        // YAML closes a block by the indentation of what follows alone.
        const bool closed = node.kind != Node::BLOCK || *style.blockClose;
        if (node.kind == Node::BLOCK)
        {
            out += style.braceLine ? style.newline + indent + "{" : style.blockOpen;
            out += style.newline;
            Nested(node, style, level + 1, out);
            if (closed)
                out += indent + style.blockClose;
        }
        else
            out += style.assign + Value(node, style.arrayOpen, style.arraySeparator, style.arrayClose) +
                   style.end;
        if (style.commas && i + 1 < block.children.size())
            out += ",";
        if (closed)
            out += style.newline;
    }
}

void Toml(const Node & block, const std::string & path, std::string & out)
{
    for (const Node & node : block.children)
        if (node.kind != Node::BLOCK)
            out += node.name + " = " + Value(node, "[", ", ", "]") + "\n";
    for (const Node & node : block.children)
        if (node.kind == Node::BLOCK)
        {
            out += "\n[" + path + node.name + "]\n";
            Toml(node, path + node.name + ".", out);
        }
}
} // namespace

Node Generate(uint32_t seed, size_t bytes, int depth)
{
    Maker maker(seed);
    Node root{Node::BLOCK, "", {}, {}};
    for (size_t written = 0; written < bytes;)
    {
        root.children.push_back(maker.Block("object_" + std::to_string(root.children.size()), 1, depth));
        Node one{Node::BLOCK, "", {}, {root.children.back()}};
        std::string text;
        Nested(one, kivStyle, 0, text);
        written += text.size();
    }
    return root;
}

std::string Write(const Node & root, Syntax syntax)
{
    std::string out;
    switch (syntax)
    {
    case Syntax::KIV:
        out = "version 1.00\r\n";
        Nested(root, kivStyle, 0, out);
        break;
    case Syntax::LIBCONFIG:
        Nested(root, libconfigStyle, 0, out);
        break;
    case Syntax::YAML:
        Nested(root, yamlStyle, 0, out);
        break;
    case Syntax::TOML:
        Toml(root, "", out);
        break;
    case Syntax::JSON:
        out = "{\n";
        Nested(root, jsonStyle, 1, out);
        out += "}\n";
        break;
    }
    return out;
}
} // namespace ConfigCorpus
