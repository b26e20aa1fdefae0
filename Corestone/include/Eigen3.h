// Eigenvalues and eigenvectors of a real symmetric 3x3 matrix, in single precision: a Householder
// reduction to tridiagonal form, the QL algorithm with implicit shifts, then a sort by increasing
// eigenvalue. Fill the upper triangle with operator(), call IncreasingSort, then read the
// eigenvalues with GetEigenvalue and eigenvector i from column i of the matrix.
#pragma once

#include "KivApi.h"

namespace Kiv
{
class KIV_API Eigen3
{
public:
    float & operator()(int row, int column) { return Matrix(row, column); }
    float operator()(int row, int column) const { return values[row * 3 + column]; }

    // Counts floats from the first matrix element through the 15 values of the object: indices
    // 0 to 2 are the matrix's first row, 9 to 11 the eigenvalues. Existing callers index it so.
    float & operator[](int i) { return values[i]; }
    float operator[](int i) const { return values[i]; }

    float GetEigenvalue(int i) const { return values[diagonalAt + i]; }

    void IncreasingSort();

private:
    float & Matrix(int row, int column) { return values[row * 3 + column]; }
    float & Diagonal(int i) { return values[diagonalAt + i]; }
    float & Subdiagonal(int i) { return values[subdiagonalAt + i]; }

    void Tridiagonal();
    bool QLAlgorithm();
    void IncreasingSortEigen();
    void ApplyRotation(int i, float sine, float cosine);

    static constexpr int diagonalAt = 9;
    static constexpr int subdiagonalAt = 12;

    // The row-major matrix (input, then eigenvectors by column), the diagonal (then the
    // eigenvalues) and the subdiagonal used while solving.
    float values[15] = {};
};
} // namespace Kiv
