// Arbitrary bytes as a file read through Kiv::File: whole, in pieces, by lines and after seeks
// to positions taken from the input's last bytes.
#include "File.h"
#include "FuzzScratch.h"

#include <cstdint>
#include <cstdlib>

using Kiv::File;

namespace
{
void ReadOn(File & file, unsigned long length)
{
    static unsigned char piece[40000];
    file.Read(piece, length % sizeof(piece), 1);
}

void ReadAll(File & file)
{
    static unsigned char piece[3000];
    while (file.Read(piece, sizeof(piece), 1))
        continue;
    if (!file.Eof())
        abort();
}

void SeekAround(File & file, const uint8_t * data, size_t size)
{
    const unsigned long fileSize = file.Size();
    for (size_t at = size; at >= 4 && size - at < 64; at -= 4)
    {
        const uint32_t word =
            data[at - 4] | data[at - 3] << 8 | data[at - 2] << 16 | uint32_t(data[at - 1]) << 24;
        const uint64_t target = word % (static_cast<uint64_t>(fileSize) + 40000);
        if (target >= 0xFFFFFFFFu)
            continue;
        file.SeekSet(static_cast<long>(target));
        ReadOn(file, word >> 16);
        char line[300];
        file.ReadLine(line, word & 0xFF ? sizeof(line) : 2);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    const char * scratch = FuzzScratch::Write("cfil", data, size);
    if (!scratch)
        return 0;
    File file;
    if (file.Open(scratch, File::MODE_READ) != File::RES_OK)
        return 0;
    ReadAll(file);
    file.SeekSet(0);
    SeekAround(file, data, size);
    file.Close();
    return 0;
}
