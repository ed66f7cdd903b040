// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rows that the CPU backend offers, by numeric policy.

#include "tessaline/dispatch/builtin_capability.h"
#include "tessaline/storage/numeric_policy.h"

namespace Tessaline {

/// The rows of the floating kernels, one for each operation: dense host operands, matrices
/// row-major, complex vectors and matrices interleaved, factors and eigenvectors column-major.
/// Raises std::invalid_argument for a policy without floating kernels.
std::vector<BackendRegistration::BuiltinCapability>
cpu_floating_capabilities(const DataTypeDescriptor& policy);

/// The rows of the engine's typed kernels, for the policies that have any.
template <typename Policy>
class CpuCapabilities;

template <>
class CpuCapabilities<NumericPolicy<Float16, float>> {
  public:
    static std::vector<BackendRegistration::BuiltinCapability> legacy_records();
};

template <>
class CpuCapabilities<NumericPolicy<std::complex<float>, std::complex<float>>> {
  public:
    static std::vector<BackendRegistration::BuiltinCapability> legacy_records();
};

template <>
class CpuCapabilities<NumericPolicy<float, float>> {
  public:
    static std::vector<BackendRegistration::BuiltinCapability> legacy_records();
};

} // namespace Tessaline
