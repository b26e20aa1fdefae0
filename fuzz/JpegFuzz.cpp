// Loads the input as a JPEG file held in memory. A stream the loader takes must give a whole
// opaque XRGB32 image of a size the bitmap allows; one it refuses leaves the bitmap empty.
#include "Bitmap.h"
#include "MemoryFile.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t * data, size_t size)
{
    Kiv::MemoryFile file(data, static_cast<unsigned int>(size));
    file.SetName("fuzz.jpg");
    Kiv::Bitmap bitmap;
    if (!bitmap.Load(file))
    {
        if (bitmap.IsValid())
            abort();
        return 0;
    }
    if (bitmap.GetFormat() != Kiv::Bitmap::XRGB32 || bitmap.GetWidth() < 1 || bitmap.GetHeight() < 1 ||
        bitmap.GetWidth() > int(Kiv::Bitmap::MaxSide) || bitmap.GetHeight() > int(Kiv::Bitmap::MaxSide))
        abort();
    for (int y = 0; y < bitmap.GetHeight(); ++y)
    {
        const unsigned char * row = bitmap.GetPtr() + size_t(y) * bitmap.GetPitch();
        for (int x = 0; x < bitmap.GetWidth(); ++x)
            if (row[x * 4 + 3] != 255)
                abort();
    }
    return 0;
}
