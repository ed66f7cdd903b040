// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the records of solvers have in common, whichever family of kernels they belong to.

#include "tessaline/dispatch/builtin_capability.h"

namespace Tessaline::CpuNumerics {

/// The type in which a solver works, and what that means for its operands.
struct SolverPrecision {
    ScalarType type;
    PrecisionMode mode;
};

/// The records of a factorisation, of a solution with its factors, and of the determinant's
/// logarithm from them.
ImplementationNumerics lu_factor(std::string algorithm, SolverPrecision precision);
ImplementationNumerics solve(std::string algorithm, SolverPrecision precision,
                             SymbolicExpression auxiliary_space);
ImplementationNumerics lu_logdet(std::string algorithm, SolverPrecision precision);

/// The record of the shifted QR iteration, which works in complex128.
ImplementationNumerics shifted_qr(std::string algorithm, PrecisionMode mode,
                                  std::vector<AlgorithmParameter> parameters,
                                  std::vector<std::string> precision_notes,
                                  std::vector<std::string> notes);

} // namespace Tessaline::CpuNumerics
