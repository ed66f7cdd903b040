// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numerics records of the engine's rows.

#include "tessaline/dispatch/builtin_capability.h"

namespace Tessaline::CpuNumerics {

/// Each writes the record of an operation of its policy. Raises std::logic_error for an operation
/// that the engine has no kernel for.
ImplementationNumerics float32(const BackendRegistryKey& key);
ImplementationNumerics float16_float32(const BackendRegistryKey& key);
ImplementationNumerics complex64(const BackendRegistryKey& key);

} // namespace Tessaline::CpuNumerics
