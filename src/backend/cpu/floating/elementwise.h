// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elementwise floating kernels, parallel over elements.

#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// Each element is computed in compute type and rounded once where it is stored. Complex products
/// recover infinities as C99 Annex G does, complex quotients are careful ones (ComplexDivisor).
/// Operands are those of the operation of the same name; see operands.h for the errors.
template <typename T>
struct FloatingElementwise {
    /// The library's principal root; NaN for a negative real element.
    static void sqrt(BackendExecutionBindings& bindings);
    /// In place; does nothing at all for real elements.
    static void conjugate(BackendExecutionBindings& bindings);
    static void multiply(BackendExecutionBindings& bindings);
    static void add(BackendExecutionBindings& bindings);
    static void subtract(BackendExecutionBindings& bindings);
    static void scale(BackendExecutionBindings& bindings);
    static void divide(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
