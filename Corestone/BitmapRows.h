// The row operation tables of the bitmap formats, one per format.
#pragma once

#include "Bitmap.h"

namespace Kiv
{
namespace BitmapRows
{
// The operations of a format value; values outside the table give the operations that do nothing.
const Bitmap::RowOps & Of(unsigned int format);
// Bytes per pixel of a format value 0 to 5.
unsigned int BytesPerPixel(unsigned int format);
// True for the format values that have a table of their own.
inline bool Known(unsigned int format)
{
    return format <= Bitmap::Raw;
}
// True for the formats whose pixels the conversions write: not Indexed8, Raw or unknown values.
inline bool Converts(unsigned int format)
{
    return format >= Bitmap::RGB24 && format <= Bitmap::RGB565;
}
} // namespace BitmapRows
} // namespace Kiv
