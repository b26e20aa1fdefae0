// kiv crash: the frames of a crash report ("OFFSET - START(+INTO) MODULE", offsets into the
// module) turned into functions and source lines by binutils' addr2line, which reads the module's
// own symbols and debugging information.
#include "Tool.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace Tool
{
namespace
{
// What addr2line needs of a module: its tool and the address it was linked to be loaded at.
struct Module
{
    std::string path;
    std::string tool;
    uint64_t linkBase;
};

std::vector<unsigned char> ReadWhole(const std::string & name, unsigned long limit)
{
    Kiv::File file;
    Open(file, name, Kiv::File::MODE_READ_PLAIN);
    const unsigned long size = file.Size() < limit ? file.Size() : limit;
    std::vector<unsigned char> bytes(size);
    if (size && file.Read(bytes.data(), size, 1) != size)
        Fail(name, "cannot read");
    return bytes;
}

uint64_t Little(const std::vector<unsigned char> & bytes, size_t at, size_t count)
{
    uint64_t value = 0;
    for (size_t i = count; i-- > 0;)
        value = value << 8 | (at + i < bytes.size() ? bytes[at + i] : 0);
    return value;
}

// An ELF module is linked at its lowest loaded segment, page aligned; a PE module at its image base.
bool LinkBase(const std::vector<unsigned char> & head, Module & module)
{
    if (head.size() >= 64 && std::memcmp(head.data(),
                                         "\x7F"
                                         "ELF",
                                         4) == 0)
    {
        const bool wide = head[4] == 2;
        const uint64_t table = Little(head, wide ? 32 : 28, wide ? 8 : 4);
        const uint64_t entry = Little(head, wide ? 54 : 42, 2), count = Little(head, wide ? 56 : 44, 2);
        uint64_t lowest = ~uint64_t(0);
        for (uint64_t i = 0; i < count; ++i)
        {
            const uint64_t at = table + i * entry;
            if (at + (wide ? 24 : 12) > head.size())
                return false;
            if (Little(head, at, 4) == 1) // a loaded segment
                lowest = std::min(lowest, Little(head, at + (wide ? 16 : 8), wide ? 8 : 4));
        }
        module.tool = "addr2line";
        module.linkBase = lowest == ~uint64_t(0) ? 0 : lowest & ~uint64_t(0xFFF);
        return true;
    }
    const uint64_t pe = Little(head, 0x3C, 4);
    if (head.size() < 2 || head[0] != 'M' || head[1] != 'Z' || pe + 0x30 > head.size() ||
        std::memcmp(&head[pe], "PE\0\0", 4) != 0)
        return false;
    const bool wide = Little(head, pe + 24, 2) == 0x20B;
    module.tool = wide ? "x86_64-w64-mingw32-addr2line" : "i686-w64-mingw32-addr2line";
    module.linkBase = wide ? Little(head, pe + 48, 8) : Little(head, pe + 52, 4);
    return true;
}

// The module's file: the name in the report, or a file of the same name in the folder given.
bool FindModule(const std::string & named, const std::string & folder, Module & module)
{
    std::string path = named;
    if (!folder.empty())
        path = folder + "/" + named.substr(named.find_last_of("/\\") + 1);
    if (!Kiv::File::Exists(path.c_str()).Succeeded())
        return false;
    module.path = path;
    return LinkBase(ReadWhole(path, 4096), module);
}

std::string Resolve(const Module & module, uint64_t address)
{
    char command[1200];
    std::snprintf(command, sizeof command, "%s -f -C -e \"%s\" 0x%llx", module.tool.c_str(),
                  module.path.c_str(), static_cast<unsigned long long>(address));
    FILE * pipe = popen(command, "r");
    if (!pipe)
        return "(addr2line did not start)";
    char function[512] = "", place[512] = "";
    if (!fgets(function, sizeof function, pipe) || !fgets(place, sizeof place, pipe))
        function[0] = place[0] = '\0';
    pclose(pipe);
    function[std::strcspn(function, "\r\n")] = '\0';
    place[std::strcspn(place, "\r\n")] = '\0';
    return *function ? std::string(function) + " at " + place : "(addr2line failed)";
}

// A frame line: "OFFSET - START(+INTO) MODULE", after whatever header the log gave the line.
bool ParseFrame(const std::string & row, unsigned & offset, std::string & frameText, std::string & module)
{
    for (size_t dash = row.find(" - "); dash != std::string::npos; dash = row.find(" - ", dash + 1))
    {
        if (dash < 8)
            continue;
        unsigned start = 0, into = 0;
        int moduleAt = 0;
        const char * text = row.c_str() + dash - 8;
        if (std::sscanf(text, "%8X - %8X(+%X) %n", &offset, &start, &into, &moduleAt) == 3 && moduleAt > 0)
        {
            frameText = text;
            module = text + moduleAt;
            return !module.empty();
        }
    }
    return false;
}

// The report's text, the log's UTF-16 form read as the ASCII it holds.
std::string ReportText(const std::string & name)
{
    const std::vector<unsigned char> bytes = ReadWhole(name, 64u << 20);
    const bool wide = bytes.size() >= 2 && bytes[0] == 0xFF && bytes[1] == 0xFE;
    std::string text;
    for (size_t i = wide ? 2 : 0; i < bytes.size(); i += wide ? 2 : 1)
        text += char(bytes[i]);
    return text;
}

int Run(const Arguments & arguments)
{
    if (arguments.Has("--modules") != (arguments.operands.size() == 2))
        Fail(arguments.operands.back(), "--modules takes the folder after the report");
    const std::string folder = arguments.operands.size() == 2 ? arguments.operands[1] : "";
    const std::string & report = arguments.operands[0];
    const std::string text = ReportText(report);
    int frames = 0, unresolved = 0;
    bool first = false; // the first frame of a stack is the faulting instruction, not a return address
    size_t line = 0;
    for (size_t end; line < text.size(); line = end + 1)
    {
        end = std::min(text.find('\n', line), text.size());
        const std::string row = text.substr(line, end - line - (end > line && text[end - 1] == '\r'));
        first = first || row.find("Call Stack:") != std::string::npos;
        unsigned offset = 0;
        std::string frame, named;
        if (!ParseFrame(row, offset, frame, named))
            continue;
        ++frames;
        Module module;
        std::string where = "(module not found)";
        if (FindModule(named, folder, module))
            where = Resolve(module, module.linkBase + offset - (first ? 0 : 1));
        unresolved += where[0] == '(';
        printf("%s\n    %s\n", frame.c_str(), where.c_str());
        first = false;
    }
    if (frames == 0)
        Fail(report, "no call stack in the report");
    return unresolved ? 1 : 0;
}
} // namespace

extern const Command crashCommand = {
    "crash",
    "REPORT [--modules FOLDER]",
    "name the functions and lines of a crash report's call stack",
    "Reads a crash report (the log or the report file written beside it) and prints\n"
    "each frame of its call stack with the function and source line that addr2line\n"
    "finds for it in the module's debugging information. Modules are looked up by\n"
    "the path in the report, or by file name in FOLDER when given. Exits with 1 when\n"
    "a frame could not be resolved.",
    1,
    2,
    "--modules",
    Run,
};
} // namespace Tool
