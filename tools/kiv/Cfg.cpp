// kiv cfg: checks, queries and converts configuration files. Text and binary inputs are told apart
// by the binary header; text is read whole (UTF-16 text with its mark becomes 8-bit) and parsed
// from memory, so messages name the file as it was given.
#include "ConfigData.h"
#include "ConfigParser.h"
#include "MemoryFile.h"
#include "Tool.h"

#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace Tool
{
namespace
{
using Kiv::ConfigData;
using Kiv::File;

const unsigned char binaryHeader[4] = {'C', 'D', 1, 1};
const char * const usage = "check FILE | get FILE KEY.PATH | tobin IN OUT | totext IN OUT";

// A parser whose text writer this tool drives through a file it opened, as Save would.
class Config : public Kiv::ConfigParser
{
public:
    using ConfigParser::WriteData;

    const ConfigData & Root() const { return *GetConfig(); }
    void Load(const std::string & name);

private:
    void LoadText(File & file, const std::string & name);

    // The root read from a binary file; a parsed root belongs to the parser.
    std::unique_ptr<ConfigData> binaryRoot;
};

void Config::Load(const std::string & name)
{
    File file;
    Open(file, name, File::MODE_READ);
    unsigned char head[sizeof(binaryHeader)] = {};
    const bool binary =
        file.Read(head, sizeof(head), 1) == sizeof(head) && memcmp(head, binaryHeader, sizeof(head)) == 0;
    file.SeekSet(0);
    if (!binary)
        return LoadText(file, name);
    // A binary file has no version line; its text gets the first version.
    binaryRoot.reset(new ConfigData);
    SetConfig(binaryRoot.get());
    SetVersion(1.0f);
    if (!binaryRoot->ReadBin(file))
        Fail(name, "not a valid binary configuration (cut short, or a bad type)");
}

// A syntax error fails with the parser's message, "FILE(LINE): text". The text form names no root
// (the parser names it after the file), so the root is left unnamed and the binary form of a text
// is the same whatever the file is called.
void Config::LoadText(File & file, const std::string & name)
{
    Kiv::MemoryFile text(file, true);
    if (Parse(name.c_str(), text.Data(), text.Size()).Succeeded())
        return GetConfigRoot()->SetName(Kiv::PString());
    const std::string message(GetLastError().Length() != 0 ? static_cast<const char *>(GetLastError()) : "");
    const size_t reason =
        message.compare(0, name.size(), name) == 0 ? message.find(": ", name.size()) : std::string::npos;
    if (reason == std::string::npos)
        Fail(name, message.empty() ? "not a valid configuration" : message);
    Fail(message.substr(0, reason), message.substr(reason + 2));
}

// Sends the text writer's pieces to standard output. A raw carriage return only ends a line there
// (strings carry theirs escaped), so dropping it leaves line ends to the runtime's text mode.
class Output : public ConfigData::Writer
{
public:
    bool Write(const void * data, unsigned int size, unsigned int count) override
    {
        const char * text = static_cast<const char *>(data);
        for (const char * end = text + size * count; text < end;)
        {
            const auto * cr = static_cast<const char *>(memchr(text, '\r', static_cast<size_t>(end - text)));
            const char * stop = cr != nullptr ? cr : end;
            if (fwrite(text, 1, static_cast<size_t>(stop - text), stdout) != static_cast<size_t>(stop - text))
                return false;
            text = cr != nullptr ? cr + 1 : end;
        }
        return true;
    }
    int GetEncoding() override { return File::ENCODING_ANSI; }
};

void PrintText(const Kiv::PString & text)
{
    if (text.Length() != 0)
        fwrite(static_cast<const char *>(text), 1, text.Length(), stdout);
    fputc('\n', stdout);
}

// A scalar on one line; an array one element a line, bytes as hexadecimal digits on one line;
// then a block's children as configuration text.
void Print(const ConfigData & node)
{
    const int count = node.GetArrayCount();
    switch (node.GetDataType())
    {
    case ConfigData::TYPE_BYTEARRAY:
        for (int i = 0; i < count; ++i)
            printf("%02X", node.GetByteArray()[i]);
        fputc('\n', stdout);
        break;
    case ConfigData::TYPE_INTARRAY:
        for (int i = 0; i < count; ++i)
            printf("%d\n", node.GetIntArray()[i]);
        break;
    case ConfigData::TYPE_FLOATARRAY:
        for (int i = 0; i < count; ++i)
        {
            char text[ConfigData::FloatTextSize];
            ConfigData::FloatText(node.GetFloatArray()[i], text);
            printf("%s\n", text);
        }
        break;
    case ConfigData::TYPE_STRINGARRAY:
        for (int i = 0; i < count; ++i)
            PrintText(node.GetPStringArray()[i]);
        break;
    case ConfigData::TYPE_NONE:
        break;
    default:
        PrintText(node.DataToPString());
        break;
    }
    Output output;
    if (node.HasChildren())
        node.Write(output);
}

// One step of a key path: a name, or none for "[N]" alone, and the index among the children of
// that name (-1: the first).
struct Step
{
    bool named;
    std::string name;
    int index;
};

// Reads a name, quoted or bare, from path at `at`.
bool ReadName(const std::string & path, size_t & at, std::string & name)
{
    if (at >= path.size() || path[at] != '"')
    {
        for (; at < path.size() && path[at] != '.' && path[at] != '['; ++at)
            name += path[at];
        return true;
    }
    for (++at; at < path.size() && path[at] != '"'; ++at)
    {
        if (path[at] == '\\' && at + 1 < path.size())
            ++at;
        name += path[at];
    }
    return at++ < path.size();
}

bool ReadIndex(const std::string & path, size_t & at, int & index)
{
    if (at >= path.size() || path[at] != '[')
        return true;
    const size_t close = path.find(']', at);
    const std::string digits = path.substr(at + 1, close - at - 1);
    if (close == std::string::npos || digits.empty() || digits.size() > 9 ||
        digits.find_first_not_of("0123456789") != std::string::npos)
        return false;
    index = std::stoi(digits);
    at = close + 1;
    return true;
}

bool ParsePath(const std::string & path, std::vector<Step> & steps)
{
    for (size_t at = 0;; ++at)
    {
        Step step{at < path.size() && path[at] == '"', "", -1};
        if (!ReadName(path, at, step.name) || !ReadIndex(path, at, step.index))
            return false;
        step.named = step.named || !step.name.empty();
        if (!step.named && step.index < 0)
            return false;
        steps.push_back(step);
        if (at == path.size())
            return true;
        if (path[at] != '.')
            return false;
    }
}

const ConfigData & Walk(const ConfigData & root, const std::vector<Step> & steps)
{
    const ConfigData * node = &root;
    for (const Step & step : steps)
    {
        const Kiv::PString name(step.name.c_str(), static_cast<unsigned int>(step.name.size()));
        node = !step.named      ? &node->Find(step.index)
               : step.index < 0 ? &node->Find(name)
                                : &node->Find(name, step.index);
    }
    return *node;
}

int UsageError(const char * problem, const std::string & what)
{
    fprintf(stderr, "kiv cfg: %s%s\nusage: kiv cfg %s\n", problem, what.c_str(), usage);
    return 2;
}

int Check(const std::vector<std::string> & operands)
{
    Config().Load(operands[0]);
    return 0;
}

int Get(const std::vector<std::string> & operands)
{
    std::vector<Step> steps;
    if (!ParsePath(operands[1], steps))
        return UsageError("bad key path ", operands[1]);
    Config config;
    config.Load(operands[0]);
    const ConfigData & node = Walk(config.Root(), steps);
    if (!node)
        Fail(operands[0], "no " + operands[1]);
    Print(node);
    return 0;
}

// Writes IN into OUT the way write does; an OUT left unfinished is removed.
int Convert(const std::vector<std::string> & operands, bool (*write)(Config & config, File & out))
{
    Config config;
    config.Load(operands[0]);
    Produce(operands[1], File::MODE_WRITE | File::MODE_CREATE,
            [&](File & out)
            {
                if (!write(config, out))
                    Fail(operands[1], "write failed (disk full?)");
            });
    return 0;
}

int ToBinary(const std::vector<std::string> & operands)
{
    return Convert(operands, [](Config & config, File & out) { return config.Root().WriteBin(out); });
}

int ToText(const std::vector<std::string> & operands)
{
    return Convert(operands,
                   [](Config & config, File & out) { return config.WriteData(out, File::ENCODING_DEFAULT); });
}

struct Action
{
    const char * name;
    size_t operands;
    int (*run)(const std::vector<std::string> & operands);
};

const Action actions[] = {
    {"check", 1, Check}, {"get", 2, Get}, {"tobin", 2, ToBinary}, {"totext", 2, ToText}};

int Run(const Arguments & arguments)
{
    const std::string & name = arguments.operands[0];
    const std::vector<std::string> operands(arguments.operands.begin() + 1, arguments.operands.end());
    for (const Action & action : actions)
        if (name == action.name)
            return operands.size() == action.operands ? action.run(operands)
                                                      : UsageError("wrong number of operands for ", name);
    return UsageError("unknown action ", name);
}
} // namespace

extern const Command cfgCommand = {
    "cfg",
    usage,
    "check, query and convert configuration files",
    "Each FILE or IN may be configuration text or the binary form, told apart by the\n"
    "binary header; a compressed file is read expanded.\n\n"
    "  check FILE          parse FILE: nothing is printed when it is valid; otherwise the\n"
    "                      parser's message, with the line, and the exit code 1\n"
    "  get FILE KEY.PATH   print the value at KEY.PATH: a scalar on one line, an array one\n"
    "                      element a line (a byte array as hexadecimal digits on one line),\n"
    "                      then a block's children as configuration text\n"
    "  tobin IN OUT        write IN in the binary form\n"
    "  totext IN OUT       write IN as text behind its version line (1.00 for binary IN)\n\n"
    "KEY.PATH is names between dots, from the top of the file: a.b.c is the first c in\n"
    "the first b in the first a. name[N] is the child of that name numbered N, counting\n"
    "from 0, and [N] alone the child numbered N whatever its name. A name holding a dot\n"
    "or a bracket is written in double quotes, in which \\\" and \\\\ stand for \" and \\.",
    2,
    3,
    "",
    Run,
};
} // namespace Tool
