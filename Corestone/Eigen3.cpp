#include "Eigen3.h"

#include <cmath>
#include <utility>

namespace Kiv
{
void Eigen3::IncreasingSort()
{
    Tridiagonal();
    // A solve that runs out of iterations still sorts what it reached.
    QLAlgorithm();
    IncreasingSortEigen();
}

void Eigen3::Tridiagonal()
{
    const float a = Matrix(0, 0), b = Matrix(0, 1), c = Matrix(0, 2);
    const float d = Matrix(1, 1), e = Matrix(1, 2), f = Matrix(2, 2);
    Diagonal(0) = a;
    Subdiagonal(2) = 0.0f;
    float t = 1.0f;
    float s = 0.0f;
    if (c == 0.0f)
    {
        Diagonal(1) = d;
        Diagonal(2) = f;
        Subdiagonal(0) = b;
        Subdiagonal(1) = e;
    }
    else
    {
        const float length = std::sqrt(b * b + c * c);
        const float inverse = 1.0f / length;
        s = c * inverse;
        t = b * inverse;
        const float q = (f - d) * s + 2.0f * t * e;
        Diagonal(1) = d + q * s;
        Diagonal(2) = f - q * s;
        Subdiagonal(0) = length;
        Subdiagonal(1) = e - q * t;
    }
    // The reflection (the identity when c is 0) becomes the start of the eigenvector basis.
    const float rotation[9] = {1.0f, 0.0f, 0.0f, 0.0f, t, s, 0.0f, s, c == 0.0f ? 1.0f : -t};
    for (int i = 0; i < 9; ++i)
    {
        values[i] = rotation[i];
    }
}

bool Eigen3::QLAlgorithm()
{
    constexpr int maxIterations = 32;
    bool converged = true;
    for (int l = 0; l < 3; ++l)
    {
        int iteration = 0;
        for (; iteration < maxIterations; ++iteration)
        {
            int m = l;
            for (; m <= 1; ++m)
            {
                const float scale = std::fabs(Diagonal(m)) + std::fabs(Diagonal(m + 1));
                if (std::fabs(Subdiagonal(m)) + scale == scale)
                {
                    break;
                }
            }
            if (m == l)
            {
                break;
            }
            float g = (Diagonal(l + 1) - Diagonal(l)) / (2.0f * Subdiagonal(l));
            float r = std::sqrt(g * g + 1.0f);
            g = Diagonal(m) - Diagonal(l) + Subdiagonal(l) / (g < 0.0f ? g - r : g + r);
            float sine = 1.0f, cosine = 1.0f, p = 0.0f;
            for (int i = m - 1; i >= l; --i)
            {
                const float f = sine * Subdiagonal(i);
                const float b = cosine * Subdiagonal(i);
                if (std::fabs(f) >= std::fabs(g))
                {
                    cosine = g / f;
                    r = std::sqrt(cosine * cosine + 1.0f);
                    Subdiagonal(i + 1) = f * r;
                    sine = 1.0f / r;
                    cosine *= sine;
                }
                else
                {
                    sine = f / g;
                    r = std::sqrt(sine * sine + 1.0f);
                    Subdiagonal(i + 1) = g * r;
                    cosine = 1.0f / r;
                    sine *= cosine;
                }
                g = Diagonal(i + 1) - p;
                r = (Diagonal(i) - g) * sine + 2.0f * b * cosine;
                p = sine * r;
                Diagonal(i + 1) = g + p;
                g = cosine * r - b;
                ApplyRotation(i, sine, cosine);
            }
            Diagonal(l) -= p;
            Subdiagonal(l) = g;
            Subdiagonal(m) = 0.0f;
        }
        converged = converged && iteration < maxIterations;
    }
    return converged;
}

// Rotates columns i and i + 1 of the eigenvector basis.
void Eigen3::ApplyRotation(int i, float sine, float cosine)
{
    for (int k = 0; k < 3; ++k)
    {
        const float h = Matrix(k, i + 1);
        Matrix(k, i + 1) = sine * Matrix(k, i) + cosine * h;
        Matrix(k, i) = cosine * Matrix(k, i) - sine * h;
    }
}

void Eigen3::IncreasingSortEigen()
{
    for (int i = 0; i < 2; ++i)
    {
        int smallest = i;
        for (int j = i + 1; j < 3; ++j)
        {
            // Strictly smaller only: equal eigenvalues keep their order.
            if (Diagonal(j) < Diagonal(smallest))
            {
                smallest = j;
            }
        }
        if (smallest != i)
        {
            std::swap(Diagonal(i), Diagonal(smallest));
            for (int k = 0; k < 3; ++k)
            {
                std::swap(Matrix(k, i), Matrix(k, smallest));
            }
        }
    }
}
} // namespace Kiv
