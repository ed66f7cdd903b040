// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which shift each QR iteration takes: that of Wilkinson, and now and then an exceptional one,
// because a matrix may be a fixed point of the iteration with Wilkinson shifts.

#include "backend/cpu/eigen_general/deflation.h"

namespace Tessaline::CpuFallback {

/// The eigenvalue of [[a, b], [c, d]] that is nearer to d; of two equally near ones that with the
/// root added.
Complex wilkinson_shift(Complex a, Complex b, Complex c, Complex d);

class ShiftSequence {
  public:
    /// The shift of the next iteration on the leading block of order `active`, at least 2.
    Complex next(const SchurForm& schur, std::size_t active);

    /// What that iteration came to. Raises the failure of convergence when too many in a row did
    /// not shrink the block, which is still of order `active`.
    void record(bool deflated, std::size_t active);

  private:
    Complex exceptional_shift(const SchurForm& schur, std::size_t active);

    int without_deflation_ = 0;
    int since_exceptional_ = 0;
    std::size_t exceptional_shifts_ = 0; ///< altogether
    bool is_exceptional_ = false;
};

} // namespace Tessaline::CpuFallback
