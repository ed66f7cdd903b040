// SPDX-License-Identifier: Apache-2.0
#pragma once

// Orthonormal columns by twice modified Gram-Schmidt: as plain loops, and in vectors.

#include "backend/cpu/eigen_general/scaling.h"
#include "backend/cpu/eigen_hermitian/planar_matrix.h"
#include "backend/cpu/simd/tables/gram_schmidt_kernels.h"

namespace Tessaline::CpuFallback {

/// Makes m columns of m elements each, one after the other, orthonormal, in place: twice modified
/// Gram-Schmidt. A column that depends on those before it within m times `epsilon` is replaced by a
/// direction that they lack. Raises std::runtime_error when none can be found.
void plain_orthonormalise_columns(std::span<Complex> columns, std::size_t m, double epsilon);

/// plain_orthonormalise_columns() by vectors, with its bits. Of the two passes only the second
/// needs a column alone: in the first, each finished column is taken from all later ones at once.
class GramSchmidt {
  public:
    /// For up to n columns.
    explicit GramSchmidt(std::size_t n, const SimdKernels::GramSchmidtKernels& kernels =
                                            SimdKernels::gram_schmidt_kernels());

    void orthonormalise(std::span<Complex> columns, std::size_t m, double epsilon);

  private:
    bool orthonormalise_in_vectors(std::span<Complex> columns, std::size_t m, double epsilon);
    void project_set(std::size_t j, std::size_t m) const;
    void project_out(std::size_t j, std::size_t m) const;
    double chain_norm_of(std::size_t j, std::size_t m);
    bool divide_in_range(std::size_t j, std::size_t m, double norm) const;
    bool normalise_column(std::size_t j, std::size_t m);
    std::size_t least_covered_direction(std::size_t count, std::size_t m) const;

    const SimdKernels::GramSchmidtKernels& kernels_;
    CpuStructured::PlanarMatrix<Complex> set_;   ///< columns to come, by rows
    CpuStructured::PlanarMatrix<Complex> basis_; ///< finished columns, one a row
    CpuStructured::PlanarMatrix<Complex> terms_; ///< of a sum over a column
    std::vector<double> magnitudes_;
    std::vector<Complex> column_;
};

} // namespace Tessaline::CpuFallback
