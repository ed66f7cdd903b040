// SPDX-License-Identifier: Apache-2.0
#pragma once

// From the triangular form back to pairs of the input: back substitution, reversal of the
// balancing, rounding to the type of the results, and a check of each pair against the input.

#include "backend/cpu/eigen_general/deflation.h"

#include <string>

namespace Tessaline::CpuFallback {

/// Solves (H - lambda) x = 0 for the leading triangle of H whose last diagonal element stands for
/// `lambda`; x has as many elements as that triangle has rows. Denominators below `epsilon` times
/// the largest coefficient of their row are raised to it, so that repeated and defective
/// eigenvalues have finite vectors; `smallest` bounds them where the row is zero.
class BackSubstitution {
  public:
    BackSubstitution(std::size_t n, double epsilon, double smallest)
        : epsilon_(epsilon),
          smallest_(smallest),
          row_(n + 1) {}

    void solve(const SchurForm& schur, Complex lambda, std::span<Complex> x);

  private:
    Complex element(const SchurForm& schur, Complex lambda, std::span<const Complex> x,
                    std::size_t i);
    Complex denominator(std::span<const Complex> coefficients);

    double epsilon_;
    double smallest_;
    std::vector<Complex> row_; ///< scratch: the eigenvalue and one row of the triangle
};

/// The vector in the coordinates of the input with unit norm: Z times `x`, the solution for the
/// leading columns of Z, with the balancing of these exponents undone.
void restore_coordinates(const SchurForm& schur, std::span<const int> exponents,
                         std::span<const Complex> x, std::span<Complex> vector);

/// The input scaled to parts below 1, against which pairs are measured.
struct ScaledInput {
    std::vector<Complex> matrix; ///< row-major
    int exponent;                ///< the input is `matrix` times two to this
    double norm;                 ///< of Frobenius, of `matrix`

    explicit ScaledInput(std::vector<Complex> input);

    /// The norm of the residual, over that of the vector and the sum of the magnitude of lambda and
    /// the norm of the matrix. `lambda` is in the units of `matrix`.
    double residual(Complex lambda, std::span<const Complex> vector);

  private:
    std::vector<Complex> products_; ///< of the rows with a vector
};

} // namespace Tessaline::CpuFallback
