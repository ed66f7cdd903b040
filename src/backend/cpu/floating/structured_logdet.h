// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels of determinants. They work in double precision whatever the policy, and round
// once to the output. All are serial, and write nothing when they raise.

#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// Besides the errors of operands (see operands.h), the kernels raise
/// std::invalid_argument for an entry that is not finite and what the solvers of
/// determinants/signed_logdet.h and determinants/positive_definite_logdet.h do.
template <typename T>
struct StructuredLogdet {
    /// Sign and logarithm of a determinant, in the compute type and its real component: zero and
    /// minus infinity for a singular matrix.
    static void slogdet(BackendExecutionBindings& bindings);
    /// The logarithm of the determinant of a positive definite matrix. Raises
    /// std::invalid_argument besides for a matrix that is not Hermitian.
    static void logdet_positive_definite(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
