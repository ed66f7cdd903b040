// SPDX-License-Identifier: Apache-2.0
#include "tessaline/dispatch/backend_dispatcher.h"

#include "dispatch/best_candidate.h"
#include "dispatch/first_rule.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <ranges>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

using Keys = std::span<const BackendOperandKey>;

[[noreturn]] void throw_dispatch_error(const char* stage, ErrorReason reason, const char* what) {
    const std::string operation = std::string("BackendDispatcher::") + stage;
    throw DispatchError(operation, reason, operation + " - " + what);
}

[[noreturn]] void throw_unsupported_adaptation(const char* stage) {
    throw_dispatch_error(stage, ErrorReason::unsupported_adaptation,
                         "unsupported operand adaptation");
}

void push_front_in_order(BackendProcess& process, BackendAdaptationRegistry::StepSequence steps) {
    for (auto& step : std::views::reverse(steps)) {
        process.push_front(std::move(step));
    }
}

void push_around(BackendProcess& process, BackendAdaptationRegistry::StepPair steps) {
    process.push_front(std::move(steps.first));
    process.push_back(std::move(steps.second));
}

void require_equal_counts(const char* stage, std::span<const OperandDescriptor> operands,
                          Keys requested, Keys registered) {
    if (operands.size() != requested.size() || requested.size() != registered.size()) {
        throw_dispatch_error(stage, ErrorReason::registry_contract_mismatch,
                             "input count mismatch");
    }
}

void adapt_input(BackendProcess& process, const BackendAdaptationRegistry& adaptations,
                 std::span<const OperandDescriptor> operands, Keys requested, Keys registered) {
    require_equal_counts("adapt_input", operands, requested, registered);
    for (std::size_t index = 0; index < requested.size(); ++index) {
        if (requested[index] == registered[index]) {
            continue;
        }
        const auto* rule = first_rule(adaptations.inputs, requested[index], registered[index]);
        if (rule == nullptr) {
            throw_unsupported_adaptation("adapt_input");
        }
        push_front_in_order(
            process, rule->adapt(operands[index].role(), requested[index], registered[index]));
    }
}

void adapt_descriptor_input(BackendProcess& process, const BackendAdaptationRegistry& adaptations,
                            std::span<const OperandDescriptor> operands, Keys requested,
                            Keys registered, const OperationDescriptor& operation) {
    require_equal_counts("adapt_descriptor_input", operands, requested, registered);
    for (std::size_t index = 0; index < requested.size(); ++index) {
        const OperandRole role = operands[index].role();
        const auto* rule = first_rule(adaptations.descriptor_inputs, role, operands[index],
                                      requested[index], registered[index], operation);
        if (rule != nullptr) {
            push_front_in_order(process, rule->adapt(role, operands[index], requested[index],
                                                     registered[index], operation));
        }
    }
}

void adapt_output(BackendProcess& process, const BackendAdaptationRegistry& adaptations,
                  OperandRole role, const BackendOperandKey& requested,
                  const BackendOperandKey& registered, bool preserve) {
    if (requested == registered) {
        return;
    }
    const auto* rule = first_rule(adaptations.outputs, requested, registered);
    if (rule == nullptr) {
        throw_unsupported_adaptation("adapt_output");
    }
    push_around(process, rule->adapt(role, requested, registered, preserve));
}

void adapt_descriptor_output(BackendProcess& process, const BackendAdaptationRegistry& adaptations,
                             const OperandDescriptor& operand, const BackendOperandKey& requested,
                             const BackendOperandKey& registered,
                             const OperationDescriptor& operation, bool preserve) {
    const auto* rule = first_rule(adaptations.descriptor_outputs, operand.role(), operand,
                                  requested, registered, operation, preserve);
    if (rule != nullptr) {
        push_around(process, rule->adapt(operand.role(), operand, requested, registered, operation,
                                         preserve));
    }
}

BackendProcess::ExecutionPlan plan_for(BackendKind backend, const OperationDescriptor& operation) {
    const bool on_device = backend == BackendKind::cuda;
    BackendProcess::ExecutionPlan plan{backend,
                                       on_device ? operation.gpu_device_id() : std::nullopt,
                                       on_device ? operation.cross_device_policy()
                                                 : CrossDevicePolicy::Reject,
                                       {}};
    plan.outputs.reserve(operation.output_count());
    for (const OperandDescriptor& output : operation.outputs()) {
        plan.outputs.push_back({output.role(), operation.preserves_output(output.role())});
    }
    return plan;
}

/// The keys of a request in one allocation, inputs first.
std::vector<BackendOperandKey> requested_keys(const OperationDescriptor& operation) {
    std::vector<BackendOperandKey> keys;
    keys.reserve(operation.inputs().size() + operation.output_count());
    for (const OperandDescriptor& input : operation.inputs()) {
        keys.push_back(operand_key_for(input));
    }
    for (const OperandDescriptor& output : operation.outputs()) {
        keys.push_back(operand_key_for(output));
    }
    return keys;
}

} // namespace

BackendDispatcher::BackendDispatcher(const BackendRegistry& registry,
                                     const BackendAdaptationRegistry& adaptations)
    : registry_(registry),
      adaptations_(adaptations) {
    if (!registry_.sealed()) {
        throw std::invalid_argument("BackendDispatcher - backend catalogue must be sealed");
    }
}

BackendProcess BackendDispatcher::dispatch(const OperationDescriptor& descriptor) const {
    const std::vector<BackendOperandKey> keys = requested_keys(descriptor);
    const Keys inputs = Keys(keys).first(descriptor.inputs().size());
    const Keys outputs = Keys(keys).subspan(inputs.size());
    const auto candidate = [&](BackendKind backend) {
        return registry_.find(descriptor.handle(), backend, inputs, outputs, adaptations_);
    };
    const BackendCandidate cpu_scalar = candidate(BackendKind::cpu_scalar);
    const BackendCandidate cpu_simd = candidate(BackendKind::cpu_simd);
    const BackendCandidate cuda = candidate(BackendKind::cuda);
    const bool pinned_operand = std::ranges::any_of(keys, [](const BackendOperandKey& key) {
        return key.location == DataLocation::pinned_host;
    });
    const BackendMatch& winner = best_candidate(cpu_scalar, cpu_simd, cuda, pinned_operand);
    const BackendRegistryKey& key = winner.key();
    const bool on_device = key.backend() == BackendKind::cuda;

    BackendProcess process = winner.entry().materialise();
    process.set_execution_plan(plan_for(key.backend(), descriptor));
    adapt_input(process, adaptations_, descriptor.inputs(), inputs, key.inputs());
    if (on_device) {
        adapt_descriptor_input(process, adaptations_, descriptor.inputs(), inputs, key.inputs(),
                               descriptor);
    }
    // From the last output down to the first, so that the first one's steps are outermost.
    for (std::size_t index = outputs.size(); index-- > 0;) {
        const OperandDescriptor& output = descriptor.outputs()[index];
        const BackendOperandKey& registered = key.outputs()[index];
        const bool preserve = descriptor.preserves_output(output.role());
        adapt_output(process, adaptations_, output.role(), outputs[index], registered, preserve);
        if (on_device) {
            adapt_descriptor_output(process, adaptations_, output, outputs[index], registered,
                                    descriptor, preserve);
        }
    }
    return process;
}

} // namespace Tessaline
