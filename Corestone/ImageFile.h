// What the image file readers share: the file kind a name picks, and the JPEG decoder that the
// dispatch of Bitmap::Load and Bitmap::GetInfo hands JPEG files to.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Kiv
{
class Bitmap;

namespace ImageFile
{
enum Kind
{
    KIND_NONE,
    KIND_TGA,
    KIND_BMP,
    KIND_PCX,
    KIND_JPG
};

// The kind of the extension after the name's last '.', compared case-insensitively with the
// kind's letters ("tga", "bmp", "pcx", "jpg", "jpeg"); KIND_NONE without a known extension.
Kind KindOf(const char * name);

// JPEG files (ImageJPG.cpp), the whole file in memory. LoadJpeg leaves the bitmap XRGB32 with
// every pixel opaque and answers true, or answers false with the bitmap empty. GetJpegInfo
// reports the image's size from its headers.
bool LoadJpeg(Bitmap & bitmap, const uint8_t * data, size_t size);
bool GetJpegInfo(const uint8_t * data, size_t size, unsigned long & width, unsigned long & height);
} // namespace ImageFile
} // namespace Kiv
