// A single-precision 4-component vector.
#pragma once

namespace Kiv
{
struct Vector4
{
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
    float w = 0.0f;

    constexpr Vector4() = default;
    constexpr Vector4(float x, float y, float z, float w) : x(x), y(y), z(z), w(w) {}

    constexpr Vector4 operator+(const Vector4 & v) const { return {x + v.x, y + v.y, z + v.z, w + v.w}; }
    constexpr Vector4 operator-(const Vector4 & v) const { return {x - v.x, y - v.y, z - v.z, w - v.w}; }
    constexpr Vector4 operator*(float s) const { return {x * s, y * s, z * s, w * s}; }
    constexpr bool operator==(const Vector4 & v) const
    {
        return x == v.x && y == v.y && z == v.z && w == v.w;
    }
    constexpr bool operator!=(const Vector4 & v) const { return !(*this == v); }
    constexpr float Dot(const Vector4 & v) const { return x * v.x + y * v.y + z * v.z + w * v.w; }
};
} // namespace Kiv
