#include "MathUtil.h"

#include <cstdint>
#include <cstring>
#include <initializer_list>

namespace Kiv
{
namespace
{
// Copies the top set bit into every lower bit; the shifts are arithmetic, so a negative value
// smears to -1.
std::int32_t SmearDown(std::int32_t m)
{
    for (int shift : {16, 8, 4, 2, 1})
    {
        m |= m >> shift;
    }
    return m;
}

// Wrap-around addition: CeilPow2 of values above 2^30 overflows as the 32-bit sum always has.
std::int32_t AddWrapped(std::int32_t value, std::int32_t addend)
{
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(value) + static_cast<std::uint32_t>(addend));
}
} // namespace

int IntLog2(float x)
{
    std::uint32_t bits = 0;
    std::memcpy(&bits, &x, sizeof bits);
    return static_cast<int>((bits >> 23) & 0xFFu) - 127;
}

int ILog2(float x)
{
    return IntLog2(x);
}

int ILog2(int n)
{
    return IntLog2(static_cast<float>(n));
}

int CeilPow2(int n)
{
    return AddWrapped(SmearDown(AddWrapped(n, -1)), 1);
}

int FloorPow2(int n)
{
    if (n == 0)
    {
        return 0;
    }
    return (SmearDown(n) >> 1) + 1;
}

Vector3 GetBaryCentricWeights(const Vector3 & a, const Vector3 & b, const Vector3 & c, const Vector3 & origin,
                              const Vector3 & direction)
{
    const Vector3 edge1 = b - a;
    const Vector3 edge2 = c - a;
    const Vector3 q = direction.Cross(edge2);
    const float det = q.Dot(edge1);
    if (det > -1e-6f && det < 1e-6f)
    {
        return {};
    }
    const Vector3 s = origin - a;
    const float u = q.Dot(s) * (1.0f / det);
    const float v = direction.Dot(s.Cross(edge1)) / det;
    return {1.0f - u - v, u, v};
}
} // namespace Kiv
