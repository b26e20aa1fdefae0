// JPEG decoding where the target has no JPEG library (a 32-bit Linux build on a 64-bit host
// without the i386 libjpeg): every stream is refused, so loading a JPEG file answers false. The
// header walk still works, so the size of a JPEG file can be asked for all the same.
#include "ImageJPG.h"

namespace Kiv::Jpeg
{
bool Decode(const uint8_t *, size_t, const Frame &, uint8_t *, size_t)
{
    return false;
}
} // namespace Kiv::Jpeg
