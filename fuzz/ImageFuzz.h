// What the image fuzz targets share: the input loaded as an image file of one kind, from a
// memory file named after that kind, once keeping an 8-bit palette and once expanding it.
#pragma once

#include "Bitmap.h"
#include "MemoryFile.h"

#include <cstddef>
#include <cstdint>
#include <initializer_list>

namespace ImageFuzz
{
inline void LoadBothWays(const uint8_t * data, size_t size, const char * name)
{
    for (const bool keepPalette : {true, false})
    {
        // A load closes its memory file, so each takes a fresh view of the input.
        Kiv::MemoryFile file(data, static_cast<unsigned int>(size));
        file.SetName(name);
        Kiv::Bitmap bitmap;
        if (bitmap.Load(file, keepPalette) && bitmap.GetFormat() != Kiv::Bitmap::Indexed8)
            bitmap.Pixel(Kiv::Point{bitmap.GetWidth() - 1, bitmap.GetHeight() - 1});
    }
}
} // namespace ImageFuzz
