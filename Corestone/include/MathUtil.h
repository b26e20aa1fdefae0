// Integer and geometry helpers: power-of-two arithmetic for texture and buffer sizes, and the
// barycentric weights of a ray's hit on a triangle's plane for picking.
#pragma once

#include "KivApi.h"
#include "Vector3.h"

namespace Kiv
{
// The unbiased exponent field of the float: floor(log2 |x|) for normal values, -127 for 0 and
// denormals. No logarithm is computed.
KIV_API int IntLog2(float x);
KIV_API int ILog2(float x);
// The exponent of the integer rounded to single precision: 2^25 - 1 rounds up and gives 25.
KIV_API int ILog2(int n);
// The smallest power of two >= n; 0 for 0 and for negative n (INT_MIN wraps round to itself).
KIV_API int CeilPow2(int n);
// The largest power of two <= n; 0 for 0 and for every negative n.
KIV_API int FloorPow2(int n);
// The weights of corners a, b and c at the point where the ray meets the triangle's plane, signs
// and all (a negative weight means the point is outside); (0, 0, 0) for a ray parallel to the
// plane or a degenerate triangle.
KIV_API Vector3 GetBaryCentricWeights(const Vector3 & a, const Vector3 & b, const Vector3 & c,
                                      const Vector3 & origin, const Vector3 & direction);
} // namespace Kiv
