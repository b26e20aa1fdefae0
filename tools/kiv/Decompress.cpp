#include "Tool.h"

namespace Tool
{
namespace
{
int Run(const Arguments & arguments)
{
    Transcode(arguments.operands[0], Kiv::File::MODE_READ_COMPRESSED, arguments.operands[1],
              Kiv::File::MODE_WRITE | Kiv::File::MODE_CREATE, "expanding");
    return 0;
}
} // namespace

extern const Command decompressCommand = {
    "decompress",
    "IN OUT",
    "write the expanded copy of a compressed file",
    "Writes the contents of the compressed (CFIL) file IN to OUT as plain bytes. An IN that\n"
    "is not compressed is an error. OUT is replaced.",
    2,
    2,
    "",
    Run,
};
} // namespace Tool
