// Loads the input as a TGA file.
#include "ImageFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    ImageFuzz::LoadBothWays(data, size, "fuzz.tga");
    return 0;
}
