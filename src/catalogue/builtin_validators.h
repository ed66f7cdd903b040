// SPDX-License-Identifier: Apache-2.0
#pragma once

// Checks of families and shapes of the built-in operations. Each takes the operands of one request,
// inputs first, of the count that its operation declares, and raises std::invalid_argument at the
// first fault.

#include "tessaline/catalogue/operand.h"

#include <span>

namespace Tessaline::BuiltinValidators {

using Operands = std::span<const OperandDescriptor>;

// Vectors.
void sqrt(Operands operands);
void conjugate(Operands operands);
void elementwise_binary(Operands operands);
void reduction(Operands operands);
void elementwise_by_scalar(Operands operands);
void inner(Operands operands);
void outer(Operands operands);
void vector_equal(Operands operands);

// Matrices of any shape.
void transposition(Operands operands);
void matmul(Operands operands);
void matvec(Operands operands);
void kron(Operands operands);
void matrix_to_scalar(Operands operands);

// Square matrices.
void partial_trace(Operands operands);
void matrix_power(Operands operands);
void eye(Operands operands);

// Factorisations and eigenproblems.
void lu_factor(Operands operands);
void solve(Operands operands);
void logdet(Operands operands);
void eig(Operands operands);
void principal_eigenvector(Operands operands);
/// With one output for the values alone, with two for values and vectors.
void hermitian_eigen(Operands operands);
/// Any number of scalar outputs.
void determinant(Operands operands);

} // namespace Tessaline::BuiltinValidators
