// SPDX-License-Identifier: Apache-2.0
#pragma once

// The floating kernel of integer matrix powers.

#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

template <typename T>
struct FloatingMatrixPower {
    /// A square matrix to the power of an int32 scalar. Power 0 is the identity and power 1 a copy,
    /// of the stored bits. Higher powers are by squaring in compute type, with the products of
    /// multiply_matrices, and are rounded once where they are stored. Raises std::invalid_argument
    /// for a negative power, besides the errors of operands (see operands.h).
    static void matrix_power(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
