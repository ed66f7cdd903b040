// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels of eigenproblems. Eigenvalues and vectors are in the precision in which the
// policy computes. All are serial, and write nothing when they raise.

#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// Besides what is said here, the kernels raise the errors of operands (see operands.h).
template <typename T>
struct FloatingEigen {
    /// The set of eigenvalues and right eigenvectors of a general matrix, complex for every policy.
    /// Raises what CpuFallback::solve_complex_eigen does.
    static void eig(BackendExecutionBindings& bindings);
    /// The eigenvector of the eigenvalue of greatest magnitude, the first of equal ones, complex
    /// for every policy, interleaved or split. The magnitudes may exceed the range. Raises what
    /// CpuFallback::solve_complex_eigen does.
    static void principal_eigenvector(BackendExecutionBindings& bindings);
    /// Ascending real eigenvalues of a Hermitian matrix, and its vectors in columns. Raises
    /// std::invalid_argument for an input that is not finite or not Hermitian, SolverError for an
    /// eigenvalue that the output cannot hold, and what CpuStructured::eigen does.
    static void eigh(BackendExecutionBindings& bindings);
    /// The eigenvalues of eigh() without the vectors.
    static void eigvalsh(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
