// One colour in 32 bits, 0xAARRGGBB: in memory (little-endian) the bytes are B, G, R, A, which is
// also the layout of a 32-bit pixel. Alpha 0 is fully transparent, 255 fully opaque.
#pragma once

#include <cstdint>

namespace Kiv
{
struct PackedColor
{
    std::uint32_t argb = 0;

    constexpr PackedColor() = default;
    // Implicit both ways: a colour travels through the row operations as its plain word.
    constexpr PackedColor(std::uint32_t argb) : argb(argb) {}
    constexpr PackedColor(std::uint8_t r, std::uint8_t g, std::uint8_t b, std::uint8_t a = 255)
        : argb(static_cast<std::uint32_t>(a) << 24 | static_cast<std::uint32_t>(r) << 16 |
               static_cast<std::uint32_t>(g) << 8 | b)
    {
    }
    constexpr operator std::uint32_t() const { return argb; }

    constexpr std::uint8_t A() const { return static_cast<std::uint8_t>(argb >> 24); }
    constexpr std::uint8_t R() const { return static_cast<std::uint8_t>(argb >> 16); }
    constexpr std::uint8_t G() const { return static_cast<std::uint8_t>(argb >> 8); }
    constexpr std::uint8_t B() const { return static_cast<std::uint8_t>(argb); }

    static const PackedColor black;
    static const PackedColor blue;
    static const PackedColor cyan;
    static const PackedColor darkGray;
    static const PackedColor gray;
    static const PackedColor green;
    static const PackedColor lightGray;
    static const PackedColor magenta;
    static const PackedColor orange;
    static const PackedColor pink;
    static const PackedColor red;
    static const PackedColor white;
    static const PackedColor yellow;
};

inline constexpr PackedColor PackedColor::black{0xFF000000u};
inline constexpr PackedColor PackedColor::blue{0xFF0000FFu};
inline constexpr PackedColor PackedColor::cyan{0xFF00FFFFu};
inline constexpr PackedColor PackedColor::darkGray{0xFF404040u};
inline constexpr PackedColor PackedColor::gray{0xFF808080u};
inline constexpr PackedColor PackedColor::green{0xFF00FF00u};
inline constexpr PackedColor PackedColor::lightGray{0xFFC0C0C0u};
inline constexpr PackedColor PackedColor::magenta{0xFFFF00FFu};
inline constexpr PackedColor PackedColor::orange{0xFFFFC800u};
inline constexpr PackedColor PackedColor::pink{0xFFFF40C8u};
inline constexpr PackedColor PackedColor::red{0xFFFF0000u};
inline constexpr PackedColor PackedColor::white{0xFFFFFFFFu};
inline constexpr PackedColor PackedColor::yellow{0xFFFFFF00u};
} // namespace Kiv
