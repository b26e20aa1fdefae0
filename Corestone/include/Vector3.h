// A single-precision 3-component vector: the small algebra that geometry helpers need.
#pragma once

#include "KivApi.h"

namespace Kiv
{
struct Vector3
{
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;

    constexpr Vector3() = default;
    constexpr Vector3(float x, float y, float z) : x(x), y(y), z(z) {}

    constexpr Vector3 operator+(const Vector3 & v) const { return {x + v.x, y + v.y, z + v.z}; }
    constexpr Vector3 operator-(const Vector3 & v) const { return {x - v.x, y - v.y, z - v.z}; }
    constexpr Vector3 operator-() const { return {-x, -y, -z}; }
    constexpr Vector3 operator*(float s) const { return {x * s, y * s, z * s}; }
    Vector3 & operator+=(const Vector3 & v) { return *this = *this + v; }
    Vector3 & operator-=(const Vector3 & v) { return *this = *this - v; }
    Vector3 & operator*=(float s) { return *this = *this * s; }
    constexpr bool operator==(const Vector3 & v) const { return x == v.x && y == v.y && z == v.z; }
    constexpr bool operator!=(const Vector3 & v) const { return !(*this == v); }

    constexpr float Dot(const Vector3 & v) const { return x * v.x + y * v.y + z * v.z; }
    constexpr Vector3 Cross(const Vector3 & v) const
    {
        return {y * v.z - z * v.y, z * v.x - x * v.z, x * v.y - y * v.x};
    }
};

constexpr Vector3 operator*(float s, const Vector3 & v)
{
    return v * s;
}
} // namespace Kiv
