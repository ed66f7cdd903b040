// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels of LU factors, in the compute type of the policy. All are serial.

#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// The factors of a policy are kept in its compute type: every kernel raises std::invalid_argument
/// for an LU operand of another stored type. For errors of other operands see operands.h.
template <typename T>
struct FloatingLu {
    /// Factors the matrix that the first output holds, in place; see CpuFallback::lu_factor.
    static void lu_factor(BackendExecutionBindings& bindings);
    /// Solves with the factors of the first input; the first output holds the right-hand side and
    /// receives the solution. See CpuFallback::solve.
    static void solve(BackendExecutionBindings& bindings);
    /// The logarithm of the determinant, complex whatever the policy; see CpuFallback::logdet.
    static void logdet(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
