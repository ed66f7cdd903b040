// SPDX-License-Identifier: Apache-2.0
#pragma once

// One shifted QR iteration: the unitary factor of the shifted block by Gram-Schmidt, and the
// similarity with it.

#include "backend/cpu/eigen_general/deflation.h"
#include "backend/cpu/eigen_general/gram_schmidt.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::CpuFallback {

class QrStep {
  public:
    explicit QrStep(std::size_t n) : columns_(n * n), G_(n * n), next_(n * n), gram_schmidt_(n) {}

    /// H becomes G* H G and Z becomes Z G, with G unitary in the leading block of order `active`
    /// and the identity elsewhere: the Q of that block less `shift`. Rows of H below the block are
    /// zero in its columns.
    void iterate(SchurForm& schur, std::size_t active, Complex shift, double epsilon);

    /// The similarity alone, with the columns of the unitary block of order `active`.
    void transform(SchurForm& schur, std::span<const Complex> columns, std::size_t active);

  private:
    void copy_shifted_block(const SchurForm& schur, std::size_t active, Complex shift);
    void multiply_rows(std::vector<Complex>& matrix, std::size_t rows, std::size_t n,
                       std::size_t active);
    void multiply(const Complex* A, std::size_t stride, const Complex* B,
                  SimdKernels::ProductExtents extents);

    std::vector<Complex> columns_; ///< the shifted block, then its unitary factor, by columns
    std::vector<Complex> G_;       ///< the unitary factor by rows
    std::vector<Complex> next_;    ///< a product, at last the H that the step makes
    GramSchmidt gram_schmidt_;
};

} // namespace Tessaline::CpuFallback
