// SPDX-License-Identifier: Apache-2.0
#pragma once

// The way into the floating kernels: by stored element type and operation index.

#include "backend/common/floating_operation.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"
#include "tessaline/execution/backend_process.h"

namespace Tessaline {

/// Runs the kernel of an operation on operands stored as T, in the thread's current CPU context. T
/// is the stored element of a compiled policy other than int. Raises std::logic_error for an index
/// that no operation has and for operands of another form than the kernel's, std::invalid_argument
/// for a written operand that is bound for reading, and what the kernel does. All tables of vector
/// kernels give the same bits.
template <typename T>
void run_floating_kernel(
    FloatingOperation operation, BackendExecutionBindings& bindings,
    const SimdKernels::UnfusedTable& vector_kernels = SimdKernels::unfused_table());

/// A step that runs the kernel where the operands lie.
template <typename T>
std::unique_ptr<BackendProcessStep> floating_kernel_step(FloatingOperation operation);

} // namespace Tessaline
