#include "Tool.h"

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    const std::string & directory = arguments.operands[0];
    const std::string & archivePath = arguments.operands[1];
    if (!IsDirectory(directory))
        Fail(directory, "not a directory");
    // A pack starts a new archive, and the old one must not be packed into it.
    if (Kiv::File::Exists(archivePath.c_str()) == Kiv::File::RES_OK &&
        !Kiv::File::Remove(archivePath.c_str()))
        Fail(archivePath, "cannot replace the existing file");
    const std::vector<Item> files = FilesBelow(directory);
    Archive archive(archivePath, Archive::CREATE);
    Progress progress("packing", TotalSize(files));
    for (const Item & file : files)
        archive.Store(directory + "/" + file.name, StoredName(file.name), arguments.Has("--compress"),
                      progress);
    return 0;
}
} // namespace

extern const Command packCommand = {
    "pack",
    "DIR ARCHIVE [--compress]",
    "pack a directory tree into a new archive",
    "Stores every file below DIR in ARCHIVE under its path relative to DIR, with '/'\n"
    "between folders and its time stamp. An existing ARCHIVE is replaced.\n\n"
    "  --compress   store the files in compressed (CFIL) form",
    2,
    2,
    "--compress",
    Run,
};
} // namespace Tool
