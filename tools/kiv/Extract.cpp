#include "Tool.h"

#include <algorithm>

namespace Tool
{
using Kiv::File;

namespace
{
// The requested names, or every stored file when none is named.
std::vector<Item> Selected(const Archive & archive, const std::vector<std::string> & operands)
{
    std::vector<Item> files = archive.Files();
    if (operands.size() <= 2)
        return files;
    std::vector<Item> chosen;
    for (size_t i = 2; i < operands.size(); ++i)
    {
        const std::string name = StoredName(operands[i]);
        auto found =
            std::find_if(files.begin(), files.end(), [&](const Item & item) { return item.name == name; });
        if (found == files.end())
            Fail(archive.Path() + ":" + name, "not in the archive");
        chosen.push_back(*found);
    }
    return chosen;
}

void MakeFolderOf(const std::string & name)
{
    const size_t slash = name.find_last_of('/');
    if (slash != std::string::npos && slash != 0 && !IsDirectory(name.substr(0, slash)) &&
        !File::Md(name.substr(0, slash).c_str()))
        Fail(name.substr(0, slash), "cannot make the folder");
}

void ExtractOne(const Archive & archive, const std::string & name, const std::string & out,
                Progress & progress)
{
    File from;
    const std::string shown = archive.Path() + ":" + name;
    Open(from, archive.Subst(), name, File::MODE_READ, shown);
    MakeFolderOf(out);
    File to;
    Open(to, out, File::MODE_WRITE | File::MODE_CREATE);
    Copy(from, to, out, progress);
    Finish(to, out);
    File::Time stamp;
    if (File::GetStamp(stamp, archive.Subst(), name.c_str()))
        File::SetStamp(stamp, out.c_str());
}

int Run(const Arguments & arguments)
{
    Archive archive(arguments.operands[0], Archive::READ);
    const std::string & directory = arguments.operands[1];
    const std::vector<Item> files = Selected(archive, arguments.operands);
    Progress progress("extracting", TotalSize(files));
    for (const Item & file : files)
        // A stored name never leads out of the folder it is extracted into.
        ExtractOne(archive, file.name, directory + "/" + StoredName(file.name), progress);
    return 0;
}
} // namespace

extern const Command extractCommand = {
    "extract",
    "ARCHIVE DIR [NAME...]",
    "extract the files of an archive into a directory",
    "Writes every file stored in ARCHIVE (or only the NAMEs given) below DIR, making\n"
    "folders as needed; compressed files are expanded. A stored name that would lead out\n"
    "of DIR is refused.",
    2,
    Unlimited,
    "",
    Run,
};
} // namespace Tool
