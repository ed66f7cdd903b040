// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrix products of the floating kernels, for every order of the operands' elements.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// C = A B. Each element is the sum over increasing k of A(i, k) times B(k, j), from zero, in
/// compute type and unfused, rounded once where it is stored; complex terms recover infinities as
/// C99 Annex G does. Parallel over the rows of C, which overlaps neither factor. The shapes agree.
template <typename T>
void multiply_matrices(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
                       const FloatingMatrix<T>& C, const UnfusedTable& kernels);

/// Operands are those of the operation of the same name; see operands.h for the errors.
template <typename T>
struct FloatingProducts {
    static void matmul(const MatrixProduct<T>& operands, const UnfusedTable& kernels);
    /// As matmul with one column; parallel over rows.
    static void matvec(const MatrixVectorProduct<T>& operands, const UnfusedTable& kernels);
};

} // namespace Tessaline
