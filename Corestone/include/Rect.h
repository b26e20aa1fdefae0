// Integer plane geometry shared by consoles, images and windows: signed 32-bit fields; a rectangle
// holds x to x + width - 1 and y to y + height - 1.
#pragma once

#include <cstdint>

namespace Kiv
{
struct Point
{
    std::int32_t x = 0;
    std::int32_t y = 0;
};

struct Size
{
    std::int32_t width = 0;
    std::int32_t height = 0;
};

struct Rect
{
    std::int32_t x = 0;
    std::int32_t y = 0;
    std::int32_t width = 0;
    std::int32_t height = 0;
};
} // namespace Kiv
