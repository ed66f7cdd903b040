// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numerics records of the LU rows, whichever backend and family of kernels they belong to: of
// serial loops in a fixed order, without extra space but where it is asked for.

#include "tessaline/dispatch/builtin_capability.h"

namespace Tessaline::BackendRegistration {

/// The type in which a solver works, and what that means for its operands.
struct SolverPrecision {
    ScalarType type;
    PrecisionMode mode;
};

ImplementationNumerics lu_factor_numerics(std::string algorithm, SolverPrecision precision);
ImplementationNumerics lu_solve_numerics(std::string algorithm, SolverPrecision precision,
                                         SymbolicExpression auxiliary_space);
/// Of the determinant's logarithm from the factors.
ImplementationNumerics lu_logdet_numerics(std::string algorithm, SolverPrecision precision);

} // namespace Tessaline::BackendRegistration
