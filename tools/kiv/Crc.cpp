#include "BPE.h"
#include "Tool.h"

#include <cstdio>
#include <vector>

namespace Tool
{
namespace
{
unsigned long CrcOf(const std::string & name)
{
    Kiv::File file;
    Open(file, name, Kiv::File::MODE_READ_PLAIN);
    std::vector<unsigned char> piece(1 << 16);
    unsigned long crc = 0;
    Progress progress("checking", file.Size());
    for (unsigned long got;
         (got = file.Read(piece.data(), static_cast<unsigned long>(piece.size()), 1)) != 0;)
    {
        crc = Kiv::Crc::Calc(piece.data(), got, crc);
        progress.Advance(got);
    }
    return crc;
}

int Run(const Arguments & arguments)
{
    // Like other checksum tools, one unreadable file does not stop the others.
    int result = 0;
    for (const std::string & name : arguments.operands)
    {
        try
        {
            printf("%08lX  %s\n", CrcOf(name) & 0xFFFFFFFFul, name.c_str());
        }
        catch (const Failure & failure)
        {
            Report(crcCommand, failure);
            result = 1;
        }
    }
    return result;
}
} // namespace

extern const Command crcCommand = {
    "crc",
    "FILE...",
    "print the CRC of files",
    "Prints, for each FILE, the hexadecimal 32-bit CRC of its bytes as stored (a\n"
    "compressed file is not expanded) and its name, one line a file.",
    1,
    Unlimited,
    "",
    Run,
};
} // namespace Tool
