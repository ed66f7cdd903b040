// SPDX-License-Identifier: Apache-2.0
#pragma once

// Backend families, and how the device of a CUDA operation is chosen.

#include "tessaline/catalogue/operand.h"

#include <optional>
#include <span>
#include <string_view>

namespace Tessaline {

/// A family of implementations; part of every registry key.
enum class BackendKind : std::int32_t { cpu_scalar = 0, cpu_simd = 1, cuda = 2 };

/// "CPU scalar", "CPU SIMD", "CUDA", and "unknown" for any other value.
TESSALINE_API const char* backend_kind_name(BackendKind kind);

/// What happens when the operands of a CUDA operation lie on different devices.
enum class CrossDevicePolicy : std::int32_t {
    Reject = 0,
    PeerCopyIfAvailable = 1,
    StagedHostCopy = 2,
};

/// The enumerator's name, and "unknown" for any other value.
TESSALINE_API const char* cross_device_policy_name(CrossDevicePolicy policy);

enum class GpuSchedulingPolicy : std::int32_t { Auto = 0, FirstInput = 1, PreferredDevice = 2 };

/// How the execution device of a CUDA operation is chosen.
struct GpuSchedulingOptions {
    GpuSchedulingPolicy policy = GpuSchedulingPolicy::Auto;
    std::optional<std::int32_t> preferred_device; ///< read under PreferredDevice only
};

/// What the choice of a device sees of one operand.
struct OperandPlacement {
    OperandRole role;
    DataTopologyDescriptor topology;
    bool writes; ///< the operation writes the operand
};

/// The CUDA device of an operation, from the placement of its operands.
///
/// Under Auto the first written GPU operand decides, else the first read one; under FirstInput the
/// other way round; under PreferredDevice the option does. Operands on the host decide nothing, and
/// the result is empty when nothing decided. `name` opens each message. Raises
/// std::invalid_argument for a GPU operand with a negative device id, a missing or negative
/// preferred device, and, under CrossDevicePolicy::Reject, for a GPU operand on another device.
TESSALINE_API std::optional<std::int32_t>
schedule_gpu_execution_device(std::span<const OperandPlacement> placements,
                              CrossDevicePolicy policy, const GpuSchedulingOptions& scheduling,
                              std::string_view name);

/// Raises std::invalid_argument, opened by `name`, unless a run of these operands can take place on
/// `device`: for a GPU operand with a negative device id, a device that is negative or not among
/// `scope_devices`, a GPU operand on a device that is not among them, and, under
/// CrossDevicePolicy::Reject, for a GPU operand on another device.
TESSALINE_API void validate_gpu_execution_device(std::span<const OperandPlacement> placements,
                                                 std::span<const std::int32_t> scope_devices,
                                                 std::int32_t device, CrossDevicePolicy policy,
                                                 std::string_view name);

/// The device that schedule_gpu_execution_device finds, `fallback_device` where it finds none;
/// validated by validate_gpu_execution_device.
TESSALINE_API std::int32_t select_gpu_execution_device(std::span<const OperandPlacement> placements,
                                                       std::span<const std::int32_t> scope_devices,
                                                       std::int32_t fallback_device,
                                                       CrossDevicePolicy policy,
                                                       const GpuSchedulingOptions& scheduling,
                                                       std::string_view name);

} // namespace Tessaline
