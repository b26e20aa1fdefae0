#include "Tool.h"

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    Archive archive(arguments.operands[0], Archive::UPDATE);
    for (size_t i = 1; i < arguments.operands.size(); ++i)
    {
        const std::string & name = arguments.operands[i];
        if (!Kiv::File::Remove(archive.Subst(), StoredName(name).c_str()))
            Fail(archive.Path() + ":" + name, "not in the archive");
    }
    return 0;
}
} // namespace

extern const Command removeCommand = {
    "rm",
    "ARCHIVE NAME...",
    "remove stored files from an archive",
    "Marks each stored file NAME of ARCHIVE as removed; the index is rewritten.",
    2,
    Unlimited,
    "",
    Run,
};
} // namespace Tool
