// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

std::span<const OperandBinding> BackendExecutionBindings::adapted_origins(OperandRole role) const {
    const auto* origins = adapted.find(role);
    return origins == nullptr ? std::span<const OperandBinding>() : std::span(*origins);
}

void BackendExecutionBindings::push_adapted(OperandRole role, OperandBinding binding) {
    OperandBinding& current = operands.at(role);
    adapted.insert(role, {});
    adapted.at(role).push_back(current);
    current = binding;
}

void BackendExecutionBindings::pop_adapted(OperandRole role) {
    std::vector<OperandBinding>& origins = adapted.at(role);
    operands.insert_or_assign(role, origins.back());
    origins.pop_back();
    if (origins.empty()) {
        adapted.erase(role);
    }
}

void BackendExecutionBindings::restore_adapted() {
    for (const auto& [role, origins] : adapted) {
        if (!origins.empty()) {
            operands.insert_or_assign(role, origins.front());
        }
    }
    adapted.clear();
}

std::optional<std::int32_t> gpu_binding_device_id(const BackendExecutionBindings& bindings,
                                                  OperandRole role) {
    return gpu_operand_device_id(bindings.operands.at(role));
}

} // namespace Tessaline
