// JPEG decoding with libjpeg-turbo: rows are decoded straight into the bitmap as B, G, R, 255.
// libjpeg reports a fatal error by calling error_exit, which must not return; it jumps back to
// Decode, which then answers false. Nothing with a destructor lives between the jump's ends.
#include "ImageJPG.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>

#include <jpeglib.h>

namespace Kiv::Jpeg
{
namespace
{
struct ErrorTrap
{
    jpeg_error_mgr manager;
    jmp_buf jump;
};

[[noreturn]] void Escape(j_common_ptr info)
{
    longjmp(reinterpret_cast<ErrorTrap *>(info->err)->jump, 1);
}

// Warnings about damaged data stay quiet: the library writes no text of its own.
void Silence(j_common_ptr) {}

// Rows handed to libjpeg per call: it decodes at most a few at a time.
constexpr unsigned ROWS_PER_CALL = 16;

bool ReadRows(jpeg_decompress_struct & info, uint8_t * pixels, size_t pitch)
{
    JSAMPROW rows[ROWS_PER_CALL];
    while (info.output_scanline < info.output_height)
    {
        const unsigned first = info.output_scanline;
        const unsigned count = std::min<unsigned>(ROWS_PER_CALL, info.output_height - first);
        for (unsigned i = 0; i < count; ++i)
            rows[i] = pixels + (first + i) * pitch;
        // Memory input never suspends; no progress would mean a decoder fault, not a wait.
        if (jpeg_read_scanlines(&info, rows, count) == 0)
            return false;
    }
    return true;
}

bool Run(jpeg_decompress_struct & info, const Frame & frame, uint8_t * pixels, size_t pitch)
{
    jpeg_read_header(&info, TRUE);
    // BGRA rather than BGRX: only the alpha forms promise 255 in the fourth byte.
    info.out_color_space = JCS_EXT_BGRA;
    jpeg_start_decompress(&info);
    // The rows hold exactly the frame's size; a decoder that saw another size must not write them.
    if (info.output_width != frame.width || info.output_height != frame.height || info.output_components != 4)
        return false;
    if (!ReadRows(info, pixels, pitch))
        return false;
    jpeg_finish_decompress(&info);
    return true;
}
} // namespace

bool Decode(const uint8_t * data, size_t size, const Frame & frame, uint8_t * pixels, size_t pitch)
{
    jpeg_decompress_struct info{};
    ErrorTrap trap{};
    info.err = jpeg_std_error(&trap.manager);
    trap.manager.error_exit = Escape;
    trap.manager.output_message = Silence;
    jpeg_create_decompress(&info);
    bool decoded = false;
    if (setjmp(trap.jump) == 0)
    {
        jpeg_mem_src(&info, data, static_cast<unsigned long>(size));
        decoded = Run(info, frame, pixels, pitch);
    }
    jpeg_destroy_decompress(&info);
    return decoded;
}
} // namespace Kiv::Jpeg
