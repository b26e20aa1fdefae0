#include "Quaternion.h"

#include <cmath>

namespace Kiv
{
void Quaternion::Set(float angleX, float angleY, float angleZ)
{
    float cx = std::cos(angleX * 0.5f);
    float sx = std::sin(angleX * 0.5f);
    float cy = std::cos(angleY * 0.5f);
    float sy = std::sin(angleY * 0.5f);
    float cz = std::cos(angleZ * 0.5f);
    float sz = std::sin(angleZ * 0.5f);
    // The product of the z, y and x rotations, written out.
    x = sx * cy * cz - cx * sy * sz;
    y = cx * sy * cz + sx * cy * sz;
    z = cx * cy * sz - sx * sy * cz;
    w = cx * cy * cz + sx * sy * sz;
    Normalize();
}

float Quaternion::Length() const
{
    return std::sqrt(x * x + y * y + z * z + w * w);
}

void Quaternion::Normalize()
{
    float length = Length();
    if (!(length > 0.0f) || std::isinf(length))
    {
        *this = Quaternion();
        return;
    }
    x /= length;
    y /= length;
    z /= length;
    w /= length;
}

Quaternion Quaternion::operator*(const Quaternion & q) const
{
    return {w * q.x + x * q.w + y * q.z - z * q.y, w * q.y - x * q.z + y * q.w + z * q.x,
            w * q.z + x * q.y - y * q.x + z * q.w, w * q.w - x * q.x - y * q.y - z * q.z};
}
} // namespace Kiv
