// SPDX-License-Identifier: Apache-2.0
#pragma once

// Eigenvalues and eigenvectors of real symmetric and complex Hermitian matrices. Everything runs in
// double precision, whatever the policy of the operands.

#include "backend/cpu/simd/tables/rotation_kernels.h"

#include <complex>
#include <cstddef>
#include <span>
#include <vector>

namespace Tessaline::CpuStructured {

/// The limit on the sweeps of one solve.
inline constexpr int maximum_jacobi_sweeps = 64;

/// C is double or std::complex<double>.
template <typename C>
struct HermitianEigenResult {
    std::vector<double> values; ///< ascending
    std::vector<C> vectors; ///< row-major, column i belonging to value i; empty if not asked for
};

/// Solves the Hermitian matrix whose lower triangle and real diagonal A holds, row-major. Without
/// `vectors` only values are found, to the same bits. All kernels give the same bits.
///
/// Cyclic Jacobi rotations until every off-diagonal element is small against the geometric mean of
/// its two diagonal elements, so that small eigenvalues of a graded positive definite matrix are
/// found to high relative accuracy: Demmel and Veselic, "Jacobi's method is more accurate than QR",
/// SIAM J. Matrix Anal. Appl. 13 (1992). No rotation squares an element. The vectors are as the
/// rotations leave them, with no rule of sign or phase.
///
/// Raises SolverError, in the name of "tessaline.eigh" or without `vectors` "tessaline.eigvalsh",
/// when the sweeps do not suffice, and std::runtime_error for an eigenvalue beyond the range.
/// Serial; cubic cost for each sweep.
template <typename C>
HermitianEigenResult<C>
eigen(std::span<const C> A, std::size_t order, bool vectors,
      const SimdKernels::RotationKernels<C>& kernels = SimdKernels::rotation_kernels());

} // namespace Tessaline::CpuStructured
