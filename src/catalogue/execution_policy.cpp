// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/execution_policy.h"

#include "catalogue/enumeration_words.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline {

const char* backend_kind_name(BackendKind kind) {
    static constexpr std::array words{"CPU scalar", "CPU SIMD", "CUDA"};
    return enumeration_word(words, kind);
}

const char* cross_device_policy_name(CrossDevicePolicy policy) {
    static constexpr std::array words{"Reject", "PeerCopyIfAvailable", "StagedHostCopy"};
    return enumeration_word(words, policy);
}

namespace {

[[noreturn]] void fail(std::string_view name, const std::string& what) {
    throw std::invalid_argument(std::string(name) + " - " + what);
}

/// Opens a sentence about an operand.
std::string on_its_device(const OperandPlacement& placement) {
    return "GPU operand " + operand_role_name(placement.role) + " is on device " +
           std::to_string(placement.topology.gpu_id());
}

void require_valid_placements(std::span<const OperandPlacement> placements, std::string_view name) {
    for (const OperandPlacement& placement : placements) {
        if (placement.topology.is_gpu() && placement.topology.gpu_id() < 0) {
            fail(name, "GPU operand " + operand_role_name(placement.role) +
                           " has invalid CUDA device placement " +
                           std::to_string(placement.topology.gpu_id()));
        }
    }
}

void require_all_on(std::int32_t device, std::span<const OperandPlacement> placements,
                    std::string_view name) {
    for (const OperandPlacement& placement : placements) {
        if (placement.topology.is_gpu() && placement.topology.gpu_id() != device) {
            fail(name, on_its_device(placement) + " but selected execution device is " +
                           std::to_string(device));
        }
    }
}

bool counts_as_written(const OperandPlacement& placement) {
    return placement.writes || is_output_role(placement.role);
}

std::optional<std::int32_t> first_device(std::span<const OperandPlacement> placements,
                                         bool written) {
    const auto found = std::ranges::find_if(placements, [&](const OperandPlacement& placement) {
        return placement.topology.is_gpu() && counts_as_written(placement) == written;
    });
    if (found == placements.end()) {
        return std::nullopt;
    }
    return found->topology.gpu_id();
}

std::optional<std::int32_t> choose_device(std::span<const OperandPlacement> placements,
                                          const GpuSchedulingOptions& scheduling,
                                          std::string_view name) {
    switch (scheduling.policy) {
    case GpuSchedulingPolicy::Auto:
    case GpuSchedulingPolicy::FirstInput: {
        const bool written_first = scheduling.policy == GpuSchedulingPolicy::Auto;
        const auto device = first_device(placements, written_first);
        return device ? device : first_device(placements, !written_first);
    }
    case GpuSchedulingPolicy::PreferredDevice:
        if (!scheduling.preferred_device) {
            fail(name, "PreferredDevice GPU scheduling requires a preferred CUDA device");
        }
        if (*scheduling.preferred_device < 0) {
            fail(name, "preferred CUDA device must be non-negative");
        }
        return scheduling.preferred_device;
    }
    return std::nullopt;
}

} // namespace

std::optional<std::int32_t>
schedule_gpu_execution_device(std::span<const OperandPlacement> placements,
                              CrossDevicePolicy policy, const GpuSchedulingOptions& scheduling,
                              std::string_view name) {
    require_valid_placements(placements, name);
    const auto chosen = choose_device(placements, scheduling, name);
    if (chosen && policy == CrossDevicePolicy::Reject) {
        require_all_on(*chosen, placements, name);
    }
    return chosen;
}

void validate_gpu_execution_device(std::span<const OperandPlacement> placements,
                                   std::span<const std::int32_t> scope_devices, std::int32_t device,
                                   CrossDevicePolicy policy, std::string_view name) {
    const auto in_scope = [scope_devices](std::int32_t id) {
        return std::ranges::find(scope_devices, id) != scope_devices.end();
    };
    require_valid_placements(placements, name);
    if (device < 0) {
        fail(name, "selected CUDA device must be non-negative");
    }
    if (!in_scope(device)) {
        fail(name, "selected CUDA device " + std::to_string(device) +
                       " is not in the CUDA execution scope");
    }
    for (const OperandPlacement& placement : placements) {
        if (placement.topology.is_gpu() && !in_scope(placement.topology.gpu_id())) {
            fail(name,
                 on_its_device(placement) + " but that device is not in the CUDA execution scope");
        }
    }
    if (policy == CrossDevicePolicy::Reject) {
        require_all_on(device, placements, name);
    }
}

std::int32_t select_gpu_execution_device(std::span<const OperandPlacement> placements,
                                         std::span<const std::int32_t> scope_devices,
                                         std::int32_t fallback_device, CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling,
                                         std::string_view name) {
    const std::int32_t device = schedule_gpu_execution_device(placements, policy, scheduling, name)
                                    .value_or(fallback_device);
    validate_gpu_execution_device(placements, scope_devices, device, policy, name);
    return device;
}

} // namespace Tessaline
