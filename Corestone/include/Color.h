// A colour of four single-precision channels, 0 to 1 for the visible range; alpha 1 is opaque.
#pragma once

namespace Kiv
{
struct Color
{
    float r = 0.0f;
    float g = 0.0f;
    float b = 0.0f;
    float a = 1.0f;

    constexpr Color() = default;
    constexpr Color(float r, float g, float b, float a = 1.0f) : r(r), g(g), b(b), a(a) {}

    constexpr bool operator==(const Color & c) const { return r == c.r && g == c.g && b == c.b && a == c.a; }
    constexpr bool operator!=(const Color & c) const { return !(*this == c); }
};
} // namespace Kiv
