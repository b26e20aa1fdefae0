// Parses the input as configuration text from memory; the tree it leaves, whole or cut short by
// a syntax error, is written again as text (UTF-16 for some inputs) and in binary form.
#include "ConfigData.h"
#include "ConfigParser.h"
#include "PString.h"

#include <clocale>
#include <cstdint>
#include <vector>

extern "C" int LLVMFuzzerInitialize(int *, char ***)
{
    setlocale(LC_ALL, "C.UTF-8");
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    // A copy the size of the input, so that a read past it is caught.
    std::vector<uint8_t> text(data, data + size);
    Kiv::ConfigParser parser;
    parser.Parse("fuzz.cfg", text.data(), static_cast<unsigned int>(text.size()));
    const Kiv::ConfigData * root = static_cast<const Kiv::ConfigParser &>(parser).GetConfig();
    if (root == nullptr)
        return 0;
    Kiv::PString written, bytes;
    parser.SaveString(written, size % 3 == 0 ? Kiv::File::ENCODING_UTF16 : 0);
    root->WriteBin(bytes);
    return 0;
}
