// A single-precision rotation quaternion x i + y j + z k + w; the identity is (0, 0, 0, 1).
#pragma once

#include "KivApi.h"

namespace Kiv
{
struct KIV_API Quaternion
{
    float x = 0.0f;
    float y = 0.0f;
    float z = 0.0f;
    float w = 1.0f;

    constexpr Quaternion() = default;
    constexpr Quaternion(float x, float y, float z, float w) : x(x), y(y), z(z), w(w) {}

    // The rotation by three angles in radians: first about the x axis, then about the y axis,
    // then about the z axis (so the result is Rz * Ry * Rx, the roll-pitch-yaw order of aircraft
    // with x forward). The result is normalised.
    void Set(float angleX, float angleY, float angleZ);
    // Scales to unit length; a zero quaternion becomes the identity.
    void Normalize();
    float Length() const;

    Quaternion operator*(const Quaternion & q) const;
    constexpr bool operator==(const Quaternion & q) const
    {
        return x == q.x && y == q.y && z == q.z && w == q.w;
    }
    constexpr bool operator!=(const Quaternion & q) const { return !(*this == q); }
};
} // namespace Kiv
