#include "MathUtil.h"
#include "Rand.h"

#include <gtest/gtest.h>

#include <cfloat>
#include <climits>
#include <cmath>

TEST(MathUtil, LogarithmsReadTheExponentField)
{
    EXPECT_EQ(Kiv::ILog2(1023), 9);
    EXPECT_EQ(Kiv::ILog2(0), -127);
    EXPECT_EQ(Kiv::ILog2(-8), 3);
    // Conversion to single precision rounds 2^25 - 1 up to 2^25.
    EXPECT_EQ(Kiv::ILog2((1 << 25) - 1), 25);
    EXPECT_EQ(Kiv::ILog2((1 << 24) - 1), 23);
    EXPECT_EQ(Kiv::ILog2(INT_MAX), 31);
    EXPECT_EQ(Kiv::IntLog2(0.75f), -1);
    EXPECT_EQ(Kiv::IntLog2(-8.0f), 3);
    EXPECT_EQ(Kiv::IntLog2(-0.0f), -127);
    EXPECT_EQ(Kiv::IntLog2(FLT_MIN / 4), -127);
    EXPECT_EQ(Kiv::IntLog2(FLT_MAX), 127);
    EXPECT_EQ(Kiv::ILog2(1.9999f), 0);
    for (int shift = 0; shift < 31; ++shift)
    {
        const int power = 1 << shift;
        EXPECT_EQ(Kiv::ILog2(power), shift);
        EXPECT_EQ(Kiv::IntLog2(std::ldexp(1.5f, -shift)), -shift);
    }
}

TEST(MathUtil, PowersOfTwo)
{
    EXPECT_EQ(Kiv::CeilPow2(0), 0);
    EXPECT_EQ(Kiv::CeilPow2(-3), 0);
    EXPECT_EQ(Kiv::CeilPow2(INT_MIN + 1), 0);
    // INT_MIN - 1 wraps to INT_MAX, whose next power wraps back to INT_MIN.
    EXPECT_EQ(Kiv::CeilPow2(INT_MIN), INT_MIN);
    EXPECT_EQ(Kiv::CeilPow2(1 << 30), 1 << 30);
    EXPECT_EQ(Kiv::FloorPow2(0), 0);
    EXPECT_EQ(Kiv::FloorPow2(-3), 0);
    EXPECT_EQ(Kiv::FloorPow2(INT_MAX), 1 << 30);
    EXPECT_EQ(Kiv::FloorPow2(INT_MIN), 0);
    // Every small count lies between its two neighbouring powers.
    for (int n = 1; n < 70000; ++n)
    {
        const int ceil = Kiv::CeilPow2(n), floor = Kiv::FloorPow2(n);
        ASSERT_TRUE(ceil >= n && ceil / 2 < n && (ceil & (ceil - 1)) == 0) << n;
        ASSERT_TRUE(floor <= n && floor > n / 2 && (floor & (floor - 1)) == 0) << n;
    }
}

TEST(MathUtil, BarycentricWeightsAlongARay)
{
    const Kiv::Vector3 a(0, 0, 0), b(4, 0, 0), c(0, 4, 0);
    const Kiv::Vector3 down(0, 0, -1);
    // Through a corner, the centroid and a point outside the triangle.
    EXPECT_EQ(Kiv::GetBaryCentricWeights(a, b, c, {4, 0, 5}, down), Kiv::Vector3(0, 1, 0));
    EXPECT_EQ(Kiv::GetBaryCentricWeights(a, b, c, {0, 0, 5}, down), Kiv::Vector3(1, 0, 0));
    const Kiv::Vector3 centroid = Kiv::GetBaryCentricWeights(a, b, c, {4.0f / 3, 4.0f / 3, 2}, down);
    EXPECT_NEAR(centroid.x, 1.0f / 3, 1e-6f);
    EXPECT_NEAR(centroid.y, 1.0f / 3, 1e-6f);
    EXPECT_NEAR(centroid.z, 1.0f / 3, 1e-6f);
    EXPECT_EQ(Kiv::GetBaryCentricWeights(a, b, c, {-4, 2, 1}, down), Kiv::Vector3(1.5f, -1, 0.5f));
    // The ray's direction along the plane, or a degenerate triangle, gives no weights at all.
    EXPECT_EQ(Kiv::GetBaryCentricWeights(a, b, c, {1, 1, 1}, {1, 1, 0}), Kiv::Vector3());
    EXPECT_EQ(Kiv::GetBaryCentricWeights(a, b, b * 2.0f, {1, 1, 1}, down), Kiv::Vector3());

    // On random triangles and rays the weighted corners give back the hit point on the ray.
    Kiv::Rand generator;
    generator.SetSeed(5);
    auto randomPoint = [&] {
        return Kiv::Vector3(generator.NextFloat(-1, 1), generator.NextFloat(-1, 1),
                            generator.NextFloat(-1, 1));
    };
    for (int i = 0; i < 2000; ++i)
    {
        const Kiv::Vector3 p = randomPoint(), q = randomPoint(), r = randomPoint(),
                           origin = randomPoint() * 3;
        const Kiv::Vector3 target = p * 0.2f + q * 0.3f + r * 0.5f;
        const Kiv::Vector3 direction = target - origin;
        const Kiv::Vector3 normal = (q - p).Cross(r - p);
        if (std::fabs(normal.Dot(direction)) < 1e-2f)
        {
            continue;
        }
        const Kiv::Vector3 w = Kiv::GetBaryCentricWeights(p, q, r, origin, direction);
        EXPECT_NEAR(w.x + w.y + w.z, 1.0f, 1e-5f);
        const Kiv::Vector3 hit = p * w.x + q * w.y + r * w.z;
        EXPECT_NEAR(hit.x, target.x, 2e-3f);
        EXPECT_NEAR(hit.y, target.y, 2e-3f);
        EXPECT_NEAR(hit.z, target.z, 2e-3f);
    }
}
