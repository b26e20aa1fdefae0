#include "Eigen3.h"
#include "Rand.h"

#include <Eigen/Dense>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>

namespace
{
// Single precision leaves about 1.2e-7 of relative error per operation; a few dozen operations
// per element give the bound below, relative to the matrix's largest eigenvalue.
constexpr double tolerance = 4e-6;

Kiv::Eigen3 Solve(const Eigen::Matrix3f & input)
{
    Kiv::Eigen3 solver;
    for (int row = 0; row < 3; ++row)
    {
        for (int column = 0; column < 3; ++column)
        {
            solver(row, column) = input(row, column);
        }
    }
    solver.IncreasingSort();
    return solver;
}

Eigen::Matrix3d Eigenvectors(const Kiv::Eigen3 & solved)
{
    Eigen::Matrix3d vectors;
    for (int row = 0; row < 3; ++row)
    {
        for (int column = 0; column < 3; ++column)
        {
            vectors(row, column) = solved(row, column);
        }
    }
    return vectors;
}

// Checks one solve against the double-precision reference: eigenvalues, residuals A v - l v,
// orthonormal columns and the increasing order.
void ExpectSolved(const Eigen::Matrix3f & input)
{
    const Eigen::Matrix3d a = input.cast<double>();
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3d> reference(a);
    const double scale = std::max(1e-30, reference.eigenvalues().cwiseAbs().maxCoeff());
    const Kiv::Eigen3 solved = Solve(input);
    const Eigen::Matrix3d vectors = Eigenvectors(solved);
    for (int i = 0; i < 3; ++i)
    {
        const double value = solved.GetEigenvalue(i);
        ASSERT_NEAR(value, reference.eigenvalues()(i), tolerance * scale) << input;
        ASSERT_LT((a * vectors.col(i) - value * vectors.col(i)).norm(), tolerance * scale) << input;
        if (i > 0)
        {
            ASSERT_LE(solved.GetEigenvalue(i - 1), value);
        }
    }
    ASSERT_LT((vectors.transpose() * vectors - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff(), tolerance)
        << input;
}

// A random rotation from a normalised quaternion of normal deviates.
Eigen::Matrix3d RandomRotation(Kiv::Rand & generator)
{
    Eigen::Quaterniond q(generator.Gaussian(0, 1), generator.Gaussian(0, 1), generator.Gaussian(0, 1),
                         generator.Gaussian(0, 1));
    return q.normalized().toRotationMatrix();
}

Eigen::Matrix3f WithEigenvalues(Kiv::Rand & generator, const Eigen::Vector3d & values)
{
    const Eigen::Matrix3d rotation = RandomRotation(generator);
    const Eigen::Matrix3d product = rotation * values.asDiagonal() * rotation.transpose();
    // Symmetric exactly, as a caller's covariance would be.
    return (0.5 * (product + product.transpose())).cast<float>();
}
} // namespace

TEST(Eigen3, RandomSymmetricMatricesMatchTheReference)
{
    Kiv::Rand generator;
    generator.SetSeed(2024);
    for (int i = 0; i < 3000; ++i)
    {
        Eigen::Matrix3f input;
        for (int row = 0; row < 3; ++row)
        {
            for (int column = row; column < 3; ++column)
            {
                input(row, column) = input(column, row) = generator.NextFloat(-10.0f, 10.0f);
            }
        }
        ExpectSolved(input);
    }
}

TEST(Eigen3, RepeatedAndNearlyRepeatedEigenvalues)
{
    Kiv::Rand generator;
    generator.SetSeed(77);
    for (int i = 0; i < 2000; ++i)
    {
        const double base = generator.NextDouble(-5.0, 5.0);
        const double gap = std::pow(10.0, -generator.NextDouble(0.0, 8.0));
        ExpectSolved(WithEigenvalues(generator, {base, base, generator.NextDouble(-5.0, 5.0)}));
        ExpectSolved(WithEigenvalues(generator, {base, base + gap, base - gap}));
        ExpectSolved(WithEigenvalues(generator, {base, base, base}));
        // Widely spread magnitudes, as an inertia tensor of a thin rod has.
        ExpectSolved(WithEigenvalues(generator, {1e-4 * base, base, 1e4 * base}));
    }
}

TEST(Eigen3, SpecialInputs)
{
    // A diagonal matrix comes back sorted, with the identity's columns permuted alike.
    Eigen::Matrix3f diagonal = Eigen::Vector3f(3.0f, -1.0f, 2.0f).asDiagonal();
    const Kiv::Eigen3 sorted = Solve(diagonal);
    EXPECT_EQ(sorted.GetEigenvalue(0), -1.0f);
    EXPECT_EQ(sorted.GetEigenvalue(1), 2.0f);
    EXPECT_EQ(sorted.GetEigenvalue(2), 3.0f);
    const float permuted[9] = {0, 0, 1, 1, 0, 0, 0, 1, 0};
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_EQ(sorted[i], permuted[i]) << i;
    }
    // The index operator counts from the matrix, then runs on through the eigenvalues.
    EXPECT_EQ(sorted[9], -1.0f);
    EXPECT_EQ(sorted[11], 3.0f);

    // Equal eigenvalues keep their order: the identity stays the identity.
    const Kiv::Eigen3 identity = Solve(Eigen::Matrix3f::Identity() * 2.0f);
    for (int i = 0; i < 9; ++i)
    {
        EXPECT_EQ(identity[i], i % 4 == 0 ? 1.0f : 0.0f) << i;
    }

    // With (0, 2) exactly 0 only the lower block rotates; row 0 of the basis stays (1, 0, 0) when
    // (0, 1) is 0 as well.
    Eigen::Matrix3f block;
    block << 5, 0, 0, 0, 1, 2, 0, 2, 1;
    ExpectSolved(block);
    const Kiv::Eigen3 blockSolved = Solve(block);
    EXPECT_FLOAT_EQ(blockSolved.GetEigenvalue(0), -1.0f);
    EXPECT_FLOAT_EQ(blockSolved.GetEigenvalue(1), 3.0f);
    EXPECT_EQ(blockSolved(0, 2), 1.0f);

    // Only the upper triangle is read.
    Kiv::Eigen3 upper;
    upper(0, 0) = 2;
    upper(0, 1) = 1;
    upper(1, 1) = 2;
    upper(2, 2) = 7;
    upper(1, 0) = 100;
    upper.IncreasingSort();
    EXPECT_FLOAT_EQ(upper.GetEigenvalue(0), 1.0f);
    EXPECT_FLOAT_EQ(upper.GetEigenvalue(1), 3.0f);
    EXPECT_FLOAT_EQ(upper.GetEigenvalue(2), 7.0f);

    ExpectSolved(Eigen::Matrix3f::Zero());
    Kiv::Eigen3 copy;
    copy = blockSolved;
    EXPECT_EQ(copy[14], blockSolved[14]);
}
