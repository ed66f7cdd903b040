// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numerics records of the floating rows.

#include "backend/common/floating_operation.h"
#include "tessaline/dispatch/builtin_capability.h"

namespace Tessaline::CpuNumerics {

/// The record of the row whose operands are stored as T, the stored element of a policy with
/// floating kernels. The key is that row's.
template <typename T>
ImplementationNumerics floating(FloatingOperation operation, const BackendRegistryKey& key);

} // namespace Tessaline::CpuNumerics
