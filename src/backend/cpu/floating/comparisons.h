// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels that answer yes or no, within the tolerances of their policy.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// Both are serial and write an int scalar, 1 or 0. Components are compared for equality first,
/// which makes infinities of one sign equal; other values that are not finite differ from all. See
/// operands.h for the errors.
template <typename T>
struct FloatingComparisons {
    /// Whether the rows of a row-major matrix, or the columns of a column-major one, are
    /// orthonormal. 0 for a matrix that is not square, 1 for an empty one.
    static void is_unitary(const MatrixReduction<T, int>& operands, const UnfusedTable& kernels);
    /// 0 for vectors of different sizes.
    static void vector_equal(const VectorComparison<T>& operands);
};

} // namespace Tessaline
