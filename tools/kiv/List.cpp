#include "Tool.h"

#include <cstdio>

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    Archive archive(arguments.operands[0], Archive::READ);
    const bool details = arguments.Has("--long");
    for (const Item & file : archive.Files())
    {
        if (details)
            printf("%10llu %c %s\n", static_cast<unsigned long long>(file.size), file.compressed ? 'c' : '-',
                   file.name.c_str());
        else
            printf("%s\n", file.name.c_str());
    }
    return 0;
}
} // namespace

extern const Command listCommand = {
    "list",
    "ARCHIVE [--long]",
    "list the files stored in an archive",
    "Prints the name of every file stored in ARCHIVE, one a line, in name order.\n\n"
    "  --long   also the stored size and 'c' for a file stored compressed ('-' if not)",
    1,
    1,
    "--long",
    Run,
};
} // namespace Tool
