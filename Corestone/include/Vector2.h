// A single-precision 2-component vector.
#pragma once

namespace Kiv
{
struct Vector2
{
    float x = 0.0f;
    float y = 0.0f;

    constexpr Vector2() = default;
    constexpr Vector2(float x, float y) : x(x), y(y) {}

    constexpr Vector2 operator+(const Vector2 & v) const { return {x + v.x, y + v.y}; }
    constexpr Vector2 operator-(const Vector2 & v) const { return {x - v.x, y - v.y}; }
    constexpr Vector2 operator-() const { return {-x, -y}; }
    constexpr Vector2 operator*(float s) const { return {x * s, y * s}; }
    constexpr bool operator==(const Vector2 & v) const { return x == v.x && y == v.y; }
    constexpr bool operator!=(const Vector2 & v) const { return !(*this == v); }
    constexpr float Dot(const Vector2 & v) const { return x * v.x + y * v.y; }
};
} // namespace Kiv
