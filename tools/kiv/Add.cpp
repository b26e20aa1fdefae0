#include "Tool.h"

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    // Every input is found before the archive changes: a missing one changes nothing.
    std::vector<std::pair<std::string, std::string>> stores;
    uint64_t total = 0;
    for (size_t i = 1; i < arguments.operands.size(); ++i)
    {
        const std::string & input = arguments.operands[i];
        if (IsDirectory(input))
        {
            const std::vector<Item> files = FilesBelow(input);
            for (const Item & file : files)
                stores.emplace_back(input + "/" + file.name, StoredName(input + "/" + file.name));
            total += TotalSize(files);
            continue;
        }
        if (Kiv::File::Exists(input.c_str()) != Kiv::File::RES_OK)
            Fail(input, "no such file or folder");
        stores.emplace_back(input, StoredName(input));
    }
    Archive archive(arguments.operands[0], Archive::CREATE);
    Progress progress("adding", total);
    for (const auto & [diskName, name] : stores)
        archive.Store(diskName, name, arguments.Has("--compress"), progress);
    return 0;
}
} // namespace

extern const Command addCommand = {
    "add",
    "ARCHIVE FILE... [--compress]",
    "add files or folders to an archive",
    "Stores each FILE in ARCHIVE under its path as given (folders with everything below\n"
    "them), replacing a stored file of the same name. ARCHIVE is made when missing.\n\n"
    "  --compress   store the files in compressed (CFIL) form",
    2,
    Unlimited,
    "--compress",
    Run,
};
} // namespace Tool
