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
} // namespace BitmapRows
} // namespace Kiv
