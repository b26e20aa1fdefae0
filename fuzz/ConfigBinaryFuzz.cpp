// Reads the input as a binary configuration file through Kiv::File; whatever tree comes of it,
// whole or cut short by a failure, is written again as binary and as text (UTF-16 text for some
// inputs), and its CRC taken, so the writers see every name and value the reader lets through.
#include "ConfigData.h"
#include "File.h"
#include "FuzzScratch.h"
#include "PString.h"

#include <clocale>
#include <cstdint>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    const char * name = FuzzScratch::Write("configbinary", data, size);
    Kiv::File file;
    if (name == nullptr || !file.Open(name, Kiv::File::MODE_READ).Succeeded())
        return 0;
    Kiv::ConfigData root;
    root.ReadBin(file);
    file.Close();
    Kiv::PString bytes, text;
    root.WriteBin(bytes);
    root.Write(text, size % 3 == 0 ? Kiv::File::ENCODING_UTF16 : 0);
    root.Crc();
    return 0;
}
