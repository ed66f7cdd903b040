// SPDX-License-Identifier: Apache-2.0
#pragma once

// When the last active row of a nearly triangular matrix may be declared zero left of its diagonal.

#include "backend/cpu/eigen_general/scaling.h"

#include <vector>

namespace Tessaline::CpuFallback {

/// H and Z with A = D Z H Z* D^-1, A the scaled input and D the balancing, both row-major of order
/// n. Z is unitary.
struct SchurForm {
    std::size_t n;
    std::vector<Complex> H;
    std::vector<Complex> Z;

    SchurForm(std::vector<Complex> matrix, std::size_t order);
};

/// The larger of the magnitudes in row `l` and column `l` of H, up to their diagonal element.
double largest_in_row_and_column(const SchurForm& schur, std::size_t l);

class Deflation {
  public:
    /// `relative_tolerance` bounds the row against its row and column; `guard` bounds, as a
    /// logarithm to base two, what zeroing it may do to H in the coordinates of the input.
    /// `exponents` are those of the balancing and are referred to.
    Deflation(double relative_tolerance, double guard, std::span<const int> exponents)
        : relative_tolerance_(relative_tolerance),
          guard_(guard),
          exponents_(exponents),
          logarithms_(exponents.size()) {}

    /// Zeroes the last row of the leading block of order `active` left of the diagonal while it is
    /// negligible, and returns the order of the block that remains.
    std::size_t deflate(SchurForm& schur, std::size_t active);

  private:
    bool is_negligible(const SchurForm& schur, std::size_t l);
    double log_backward_error(const SchurForm& schur, std::size_t l);

    double relative_tolerance_;
    double guard_;
    std::span<const int> exponents_;
    std::vector<double> logarithms_; ///< scratch, one for each row of Z
};

} // namespace Tessaline::CpuFallback
