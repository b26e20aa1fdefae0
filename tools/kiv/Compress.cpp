#include "Tool.h"

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    // A compressed input is read expanded, so compressing it again gives the same file.
    Transcode(arguments.operands[0], Kiv::File::MODE_READ, arguments.operands[1],
              Kiv::File::MODE_WRITE_COMPRESSED | Kiv::File::MODE_CREATE, "compressing");
    return 0;
}
} // namespace

extern const Command compressCommand = {
    "compress",
    "IN OUT",
    "write a compressed (CFIL) copy of a file",
    "Writes the contents of IN to OUT in compressed (CFIL) form; an IN that is itself\n"
    "compressed is expanded first. OUT is replaced.",
    2,
    2,
    "",
    Run,
};
} // namespace Tool
