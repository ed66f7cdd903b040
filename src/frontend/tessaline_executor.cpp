// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/tessaline_executor.h"

#include "frontend/shared_memory.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

/// The request that these bindings make of an operation.
OperationDescriptor describe_request(const OperationSpec& spec,
                                     const BackendExecutionBindings& bindings,
                                     CrossDevicePolicy policy,
                                     const GpuSchedulingOptions& scheduling) {
    if (bindings.operands.size() != spec.operands().size()) {
        throw std::invalid_argument("TessalineExecutor::execute - binding arity does not match "
                                    "operation '" +
                                    spec.id().name() + "'");
    }
    OperationDescriptor::Operands operands{{}, 0};
    operands.list.reserve(spec.operands().size());
    for (const OperationOperandSpec& operand : spec.operands()) {
        const OperandBinding* binding = bindings.operands.find(operand.role);
        if (binding == nullptr) {
            throw std::invalid_argument("TessalineExecutor::execute - missing binding " +
                                        operand_role_name(operand.role) + " for operation '" +
                                        spec.id().name() + "'");
        }
        const bool written = operand.access != OperandAccess::read;
        if (written && !is_writable(*binding)) {
            throw std::invalid_argument("TessalineExecutor::execute - writable binding " +
                                        operand_role_name(operand.role) +
                                        " is const for operation '" + spec.id().canonical() + "'");
        }
        operands.list.push_back(describe_operand(operand.role, *binding));
        operands.input_count += written ? 0 : 1;
    }
    return {spec, std::move(operands), policy, scheduling};
}

} // namespace

TessalineExecutor::TessalineExecutor(const TessalineContext& context, BackendExecutor&& executor)
    : context_(&context),
      executor_(std::move(executor)) {}

void TessalineExecutor::execute(BackendExecutionBindings& bindings, const OperationId& id,
                                BackendExecutor::ExecutionOptions options) const {
    run(bindings, context_->operation(id), std::move(options));
}

void TessalineExecutor::execute(BackendExecutionBindings& bindings, const OperationSpec& operation,
                                BackendExecutor::ExecutionOptions options) const {
    if (!context_->contains(operation)) {
        throw std::invalid_argument("TessalineExecutor::execute - operation '" +
                                    operation.id().canonical() + "' belongs to another catalogue");
    }
    run(bindings, operation, std::move(options));
}

void TessalineExecutor::run(BackendExecutionBindings& bindings, const OperationSpec& spec,
                            BackendExecutor::ExecutionOptions options) const {
    const OperationDescriptor request = describe_request(
        spec, bindings, executor_.cross_device_policy(), executor_.gpu_scheduling_options());
    refuse_shared_memory(spec, request, bindings);
    const BackendProcess process = context_->dispatcher().dispatch(request);
    executor_.execute(process, bindings, std::move(options));
}

void TessalineExecutor::execute(BackendExecutionBindings& bindings, const OperationId& id) const {
    execute(bindings, id, {});
}

void TessalineExecutor::execute(const OperationId& id, const OperationBindings& bindings,
                                BackendExecutor::ExecutionOptions options) const {
    BackendExecutionBindings run_bindings = bindings.make_backend_bindings();
    execute(run_bindings, id, std::move(options));
}

void TessalineExecutor::execute(const OperationId& id, const OperationBindings& bindings) const {
    execute(id, bindings, {});
}

} // namespace Tessaline
