// The 3x3 symmetric eigen-solver against Eigen's iterative solver and its closed form, on the
// same 1,024 random matrices. Each reports, beside its speed, its worst residual |A v - l v| and
// its worst departure from orthonormal eigenvectors, relative to the largest eigenvalue and
// measured in double precision.
#include "Eigen3.h"
#include "Rand.h"

#include <Eigen/Dense>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <vector>

namespace
{
struct Solution
{
    Eigen::Vector3f values;
    Eigen::Matrix3f vectors;
};

const std::vector<Eigen::Matrix3f> & Inputs()
{
    static const std::vector<Eigen::Matrix3f> inputs = []
    {
        Kiv::Rand generator;
        generator.SetSeed(99);
        std::vector<Eigen::Matrix3f> matrices(1024);
        for (Eigen::Matrix3f & m : matrices)
        {
            for (int row = 0; row < 3; ++row)
            {
                for (int column = row; column < 3; ++column)
                {
                    m(row, column) = m(column, row) = generator.NextFloat(-10.0f, 10.0f);
                }
            }
        }
        return matrices;
    }();
    return inputs;
}

Solution SolveKiv(const Eigen::Matrix3f & input)
{
    Kiv::Eigen3 solver;
    for (int row = 0; row < 3; ++row)
    {
        for (int column = row; column < 3; ++column)
        {
            solver(row, column) = input(row, column);
        }
    }
    solver.IncreasingSort();
    Solution solution;
    for (int i = 0; i < 3; ++i)
    {
        solution.values(i) = solver.GetEigenvalue(i);
        for (int row = 0; row < 3; ++row)
        {
            solution.vectors(row, i) = solver(row, i);
        }
    }
    return solution;
}

Solution SolveEigenIterative(const Eigen::Matrix3f & input)
{
    const Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver(input);
    return {solver.eigenvalues(), solver.eigenvectors()};
}

Solution SolveEigenDirect(const Eigen::Matrix3f & input)
{
    Eigen::SelfAdjointEigenSolver<Eigen::Matrix3f> solver;
    solver.computeDirect(input);
    return {solver.eigenvalues(), solver.eigenvectors()};
}

void ReportAccuracy(benchmark::State & state, Solution (*solve)(const Eigen::Matrix3f &))
{
    double residual = 0.0, orthogonality = 0.0;
    for (const Eigen::Matrix3f & input : Inputs())
    {
        const Solution s = solve(input);
        const Eigen::Matrix3d a = input.cast<double>();
        const Eigen::Matrix3d v = s.vectors.cast<double>();
        const double scale = std::max(1e-30, s.values.cast<double>().cwiseAbs().maxCoeff());
        const Eigen::Matrix3d r = a * v - v * s.values.cast<double>().asDiagonal();
        residual = std::max(residual, r.colwise().norm().maxCoeff() / scale);
        orthogonality =
            std::max(orthogonality, (v.transpose() * v - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff());
    }
    state.counters["max_residual"] = residual;
    state.counters["max_orthogonality_error"] = orthogonality;
}

template <Solution (*solve)(const Eigen::Matrix3f &)>
void Solve(benchmark::State & state)
{
    const std::vector<Eigen::Matrix3f> & inputs = Inputs();
    for (auto _ : state)
    {
        for (const Eigen::Matrix3f & input : inputs)
        {
            benchmark::DoNotOptimize(solve(input));
        }
    }
    state.SetItemsProcessed(state.iterations() * inputs.size());
    ReportAccuracy(state, solve);
}
} // namespace

BENCHMARK(Solve<SolveKiv>)->Name("Eigen3/solve-1024:Kiv");
BENCHMARK(Solve<SolveEigenIterative>)->Name("Eigen3/solve-1024:Eigen-iterative");
BENCHMARK(Solve<SolveEigenDirect>)->Name("Eigen3/solve-1024:Eigen-computeDirect");
