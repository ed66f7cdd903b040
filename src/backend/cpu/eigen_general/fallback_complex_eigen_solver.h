// SPDX-License-Identifier: Apache-2.0
#pragma once

// All eigenvalues and right eigenvectors of a general complex matrix, of whatever policy.

#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/kernel_views.h"

namespace Tessaline::CpuFallback {

/// The units of returned eigenvalues.
enum class EigenvalueScale : std::int32_t {
    original = 0, ///< those of the input
    internal = 1, ///< a power of two common to all, for which no eigenvalue leaves the range
};

/// Writes eigenvalue k of A and its eigenvector of unit norm, n consecutive elements from index
/// k n, for all k, in no particular order. T is float or double; all arithmetic is in double.
///
/// Raises std::invalid_argument unless A is square and of the result's order, SolverError for an
/// input that is not finite, for iterations that do not converge, for an eigenvalue outside the
/// range of T and for a pair that does not satisfy A v = lambda v within the residual tolerance.
/// A failure leaves the pairs that were found before it in `result`.
///
/// The matrix is balanced, reduced to triangular form by shifted QR iterations with cubic cost
/// each, and back substitution gives the vectors; see Golub and Van Loan, Matrix Computations,
/// chapter 7. Serial.
template <typename T>
void solve_complex_eigen(DenseComplexIntlvMatrixView<const std::complex<T>> A,
                         HostEigenVals<std::complex<T>, std::complex<T>>& result,
                         EigenvalueScale scale);

} // namespace Tessaline::CpuFallback
