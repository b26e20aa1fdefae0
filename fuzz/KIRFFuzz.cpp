// Walks a KIRF file made of the input: the header, then blocks read whole, skipped, entered as
// nested blocks or read as padded strings, until the walk stops advancing.
#include "FuzzScratch.h"
#include "KIRFFile.h"
#include "PString.h"
#include "String.h"

#include <cstdint>

namespace
{
void Walk(Kiv::KIRFFile & file)
{
    unsigned int size = 0;
    file.ReadHeader(0, size);
    while (!file.Eof())
    {
        const unsigned long before = file.Tell();
        unsigned long id = 0;
        unsigned int length = 0;
        file.ReadBlockHeader(id, length);
        unsigned char buffer[64];
        unsigned int room = sizeof(buffer);
        switch (id & 3)
        {
        case 0:
            file.SeekSet(static_cast<long>(before));
            file.ReadBlock(id, room, buffer);
            break;
        case 1:
        {
            Kiv::PString text;
            file.SeekSet(static_cast<long>(before));
            file.ReadPadded(text);
            break;
        }
        case 2:
        {
            Kiv::String text;
            file.ReadPadded(text);
            break;
        }
        default:
            // Another identifier: the payload is walked as nested blocks.
            file.SeekSet(static_cast<long>(before));
            file.ReadBlock(id ^ 1, room, buffer);
            break;
        }
        if (file.Tell() <= before)
            break;
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    const char * name = FuzzScratch::Write("kirf", data, size);
    Kiv::KIRFFile file;
    if (name && file.Open(name, Kiv::File::MODE_READ).Succeeded())
        Walk(file);
    return 0;
}
