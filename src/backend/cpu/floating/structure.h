// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels that move, combine or trace out elements of matrices by their position,
// for every order of the operands' elements.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// Parallel over the rows of the result, `eye` over its elements; results are written in the order
/// of their memory. Each element is computed in compute type and rounded once where it is stored.
/// Operands are those of the operation of the same name; see operands.h for the errors.
template <typename T>
struct FloatingStructure {
    static void transpose(const MatrixTransposition<T>& operands, const UnfusedTable& kernels);
    static void adjoint(const MatrixTransposition<T>& operands, const UnfusedTable& kernels);
    /// Element (i1 r + i2, j1 c + j2) is A[i1][j1] times B[i2][j2], for B of r rows and c columns.
    static void kron(const KroneckerProduct<T>& operands, const UnfusedTable& kernels);
    /// Element (i, j) is a[i] times b[j]; nothing is conjugated.
    static void outer(const OuterProduct<T>& operands, const UnfusedTable& kernels);
    /// For a matrix of order k m and a result of order m: element (i, j) is the sum over increasing
    /// t below k of A[t m + i][t m + j].
    static void partial_trace_left(const MatrixMap<T>& operands, const UnfusedTable& kernels);
    /// For a matrix of order k m and a result of order m: element (i, j) is the sum over increasing
    /// t below k of A[i k + t][j k + t].
    static void partial_trace_right(const MatrixMap<T>& operands, const UnfusedTable& kernels);
    static void eye(const MatrixOutput<T>& operands);
};

} // namespace Tessaline
