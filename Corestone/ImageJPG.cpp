// JPEG files: no decoder is built in yet, so every JPEG file is refused.
#include "ImageFile.h"

namespace Kiv::ImageFile
{
bool LoadJpeg(Bitmap &, const uint8_t *, size_t)
{
    return false;
}

bool GetJpegInfo(const uint8_t *, size_t, unsigned long &, unsigned long &)
{
    return false;
}
} // namespace Kiv::ImageFile
