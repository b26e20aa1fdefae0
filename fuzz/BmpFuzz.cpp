// Loads the input as a BMP file.
#include "ImageFuzz.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    ImageFuzz::LoadBothWays(data, size, "fuzz.bmp");
    return 0;
}
