// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/operand_binding.h"

namespace Tessaline {

OperandDescriptor describe_operand(OperandRole role, const OperandBinding& binding) {
    return std::visit(
        [role](const auto& bound) { return OperandDescriptor(role, bound.get().descriptor()); },
        binding);
}

const DataTopologyDescriptor& operand_topology(const OperandBinding& binding) {
    return std::visit(
        [](const auto& bound) -> const auto& { return bound.get().descriptor().topology(); },
        binding);
}

const GpuResidentEntity* operand_readiness(const OperandBinding& binding) {
    return std::visit([](const auto& bound) { return bound.get().readiness(); }, binding);
}

std::optional<std::int32_t> gpu_operand_device_id(const OperandBinding& binding) {
    const DataTopologyDescriptor& topology = operand_topology(binding);
    return topology.is_gpu() ? std::optional(topology.gpu_id()) : std::nullopt;
}

} // namespace Tessaline
