// SPDX-License-Identifier: Apache-2.0
#pragma once

// The floating kernel of integer matrix powers.

#include "backend/cpu/floating/resolved_operands.h"

namespace Tessaline {

/// The second operand, an int32 scalar. Raises std::invalid_argument for a negative one.
int matrix_power_exponent(BackendExecutionBindings& bindings);

template <typename T>
struct MatrixPower {
    FloatingMatrix<const T> A;
    int exponent;
    FloatingMatrix<T> result;

    explicit MatrixPower(BackendExecutionBindings& bindings)
        : A(square_input(bindings)),
          exponent(matrix_power_exponent(bindings)),
          result(output_matrix<T>(bindings, output_role(0), {A.rows, A.rows})) {}

  private:
    static FloatingMatrix<const T> square_input(BackendExecutionBindings& bindings) {
        const std::uint64_t order = input_matrix<T>(bindings, input_role(0)).rows;
        return input_matrix<T>(bindings, input_role(0), {order, order});
    }
};

template <typename T>
struct FloatingMatrixPower {
    /// Power 0 is the identity and power 1 a copy, of the stored bits. Higher powers are by
    /// squaring in compute type, with the products of multiply_matrices, and are rounded once where
    /// they are stored.
    static void matrix_power(const MatrixPower<T>& operands, const UnfusedTable& kernels);
};

} // namespace Tessaline
