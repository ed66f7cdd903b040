// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels that reduce an operand to a scalar. All are serial: the order of each
// accumulation is that of the elements, so the thread count cannot change a bit.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// Sums start from zero and are kept in compute type; the result is rounded once where it is
/// stored. Operands are those of the operation of the same name; see operands.h for the
/// errors.
template <typename T>
struct FloatingReductions {
    static void sum(const VectorReduction<T>& operands, const UnfusedTable& kernels);
    /// The first vector is conjugated.
    static void inner(const VectorPairReduction<T>& operands, const UnfusedTable& kernels);
    /// The sum of the available diagonal, also of a rectangular matrix.
    static void trace(const MatrixReduction<T, T>& operands);
    /// The Euclidean norm, accumulated by the library's hypot and so without overflow unless the
    /// norm itself overflows. A complex result has the imaginary part 0.
    static void norm(const VectorReduction<T>& operands, const UnfusedTable& kernels);
};

} // namespace Tessaline
