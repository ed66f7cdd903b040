// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elementwise floating kernels, parallel over elements.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// Each element is computed in compute type and rounded once where it is stored. Complex products
/// recover infinities as C99 Annex G does, complex quotients are careful ones (ComplexDivisor).
/// Operands are those of the operation of the same name; see operands.h for the errors.
template <typename T>
struct FloatingElementwise {
    /// The library's principal root; NaN for a negative real element.
    static void sqrt(const VectorMap<T>& operands, const UnfusedTable& kernels);
    /// In place; does nothing at all for real elements.
    static void conjugate(const VectorInPlace<T>& operands);
    static void multiply(const VectorCombination<T>& operands, const UnfusedTable& kernels);
    static void add(const VectorCombination<T>& operands, const UnfusedTable& kernels);
    static void subtract(const VectorCombination<T>& operands, const UnfusedTable& kernels);
    static void scale(const VectorByScalar<T>& operands, const UnfusedTable& kernels);
    static void divide(const VectorByScalar<T>& operands, const UnfusedTable& kernels);
};

} // namespace Tessaline
