// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/plugin_registration.h"

#include "catalogue/require.h"
#include "frontend/plugin/plugin_abi.h"

#include <algorithm>
#include <span>

namespace Tessaline::PluginDetail::Internal {

namespace {

StagedOperand stage_operand(const tessaline_backend_operand& record) {
    const BackendOperandKey key = backend_operand_key(record);
    return {OperandRole{record.role}, operand_access(record.access), key.kind, key};
}

void check_roles(std::span<const StagedOperand> operands) {
    const auto outputs = static_cast<std::size_t>(std::ranges::count_if(
        operands, [](const StagedOperand& operand) { return is_output_role(operand.role); }));
    require(outputs != 0, "native kernel must declare at least one output");
    const std::size_t inputs = operands.size() - outputs;
    for (std::size_t index = 0; index < inputs; ++index) {
        require(operands[index].role == input_role(index) &&
                    operands[index].access == OperandAccess::read,
                "native kernel input roles must be contiguous reads");
    }
    for (std::size_t index = 0; index < outputs; ++index) {
        const StagedOperand& operand = operands[inputs + index];
        require(operand.role == output_role(index) && operand.access != OperandAccess::read,
                "native kernel output roles must be contiguous writes");
    }
}

StagedKernel stage_kernel(const tessaline_kernel_spec* spec) {
    require(spec != nullptr, "native plugin supplied a null kernel registration");
    require(spec->struct_size >= sizeof(*spec), "tessaline_kernel_spec has an invalid struct_size");
    require(spec->callback != nullptr, "native kernel callback must not be null");
    require(spec->operands != nullptr && spec->operand_count != 0,
            "native kernel operand array is malformed");
    StagedKernel kernel{operation_id(spec->operation),
                        backend_kind(spec->backend),
                        {},
                        spec->callback,
                        spec->user_data};
    for (const tessaline_backend_operand& record : std::span(spec->operands, spec->operand_count)) {
        kernel.operands.push_back(stage_operand(record));
    }
    check_roles(kernel.operands);
    return kernel;
}

std::vector<OperationOperandSpec> contract_of(const StagedKernel& kernel) {
    std::vector<OperationOperandSpec> contract;
    contract.reserve(kernel.operands.size());
    for (const StagedOperand& operand : kernel.operands) {
        contract.push_back({operand.role, operand.access, operand.kind});
    }
    return contract;
}

[[noreturn]] void refuse(const char* what, const OperationId& operation) {
    throw std::invalid_argument(std::string("native kernel ") + what +
                                " does not match operation '" + operation.canonical() + "'");
}

void add(RegistrationContext& context, StagedKernel kernel) {
    auto contract = contract_of(kernel);
    const auto known =
        std::ranges::find(context.operations, kernel.operation, &StagedOperation::operation);
    if (known == context.operations.end()) {
        context.operations.push_back({kernel.operation, std::move(contract)});
    } else if (known->operands.size() != contract.size()) {
        refuse("arity", kernel.operation);
    } else if (known->operands != contract) {
        refuse("role/access/family", kernel.operation);
    }
    context.kernels.push_back(std::move(kernel));
}

void remember(RegistrationContext& context, const char* failure) noexcept {
    if (context.failure) {
        return;
    }
    try {
        context.failure.emplace(failure);
    } catch (...) {
        context.failure.emplace(); // out of memory: it failed, whatever the reason was
    }
}

void report(const tessaline_error_sink* sink, tessaline_status status,
            const char* failure) noexcept {
    if (sink == nullptr || sink->struct_size < sizeof(*sink) || sink->report == nullptr) {
        return;
    }
    try {
        sink->report(sink->user_data, status, tessaline_string_from(failure));
    } catch (...) {
        // The sink may be the plugin's own; the status still tells of the failure.
    }
}

} // namespace

tessaline_status register_kernel(void* context, const tessaline_kernel_spec* spec,
                                 const tessaline_error_sink* sink) noexcept {
    auto& registration = *static_cast<RegistrationContext*>(context);
    const auto fail = [&](tessaline_status status, const char* failure) {
        remember(registration, failure);
        report(sink, status, failure);
        return status;
    };
    try {
        add(registration, stage_kernel(spec));
    } catch (const std::exception& error) {
        return fail(TESSALINE_STATUS_INVALID_ARGUMENT, error.what());
    } catch (...) {
        return fail(TESSALINE_STATUS_INTERNAL_ERROR,
                    "native plugin registration failed with an unknown error");
    }
    return TESSALINE_STATUS_OK;
}

} // namespace Tessaline::PluginDetail::Internal
