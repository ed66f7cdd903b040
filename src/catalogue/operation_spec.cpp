// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_spec.h"

#include <algorithm>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

std::vector<OperandRole> roles_of(std::span<const OperationOperandSpec> operands) {
    std::vector<OperandRole> roles;
    roles.reserve(operands.size());
    for (const OperationOperandSpec& operand : operands) {
        roles.push_back(operand.role);
    }
    return roles;
}

std::size_t count_leading_inputs(std::span<const OperationOperandSpec> operands) {
    std::size_t count = 0;
    for (const OperationOperandSpec& operand : operands) {
        if (is_output_role(operand.role)) {
            break;
        }
        if (count == operand_role_limit) {
            throw std::invalid_argument(
                "OperationSpec - operation declares too many input operands");
        }
        if (operand.role != input_role(count)) {
            throw std::invalid_argument(
                "OperationSpec - input roles must be contiguous and ordered");
        }
        if (operand.access != OperandAccess::read) {
            throw std::invalid_argument("OperationSpec - input roles must use read access");
        }
        ++count;
    }
    return count;
}

void validate_outputs(std::span<const OperationOperandSpec> outputs) {
    if (outputs.empty()) {
        throw std::invalid_argument("OperationSpec - operation must declare at least one output");
    }
    for (std::size_t index = 0; index < outputs.size(); ++index) {
        if (outputs[index].role != output_role(index)) {
            throw std::invalid_argument(
                "OperationSpec - output roles must be contiguous and ordered");
        }
        if (outputs[index].access != OperandAccess::write &&
            outputs[index].access != OperandAccess::read_write) {
            throw std::invalid_argument(
                "OperationSpec - output roles must use write or read-write access");
        }
    }
}

} // namespace

OperationSpec::OperationSpec(OperationId id, std::vector<OperationOperandSpec> operands,
                             OperationValidator validator,
                             std::optional<OperationNumerics> numerics, InPlaceUse in_place_use)
    : id_(std::move(id)),
      operands_(std::move(operands)),
      input_count_(count_leading_inputs(operands_)),
      validator_(std::move(validator)),
      in_place_use_(in_place_use) {
    validate_outputs(outputs());
    if (numerics) {
        numerics_ = canonicalise_operation_numerics(std::move(*numerics), operands_);
    }
}

std::vector<OperandRole> OperationSpec::input_roles() const {
    return roles_of(operands().first(input_count_));
}

std::vector<OperandRole> OperationSpec::output_roles() const {
    return roles_of(outputs());
}

const OperationOperandSpec& OperationSpec::operand(OperandRole role) const {
    const auto found = std::ranges::find(operands_, role, &OperationOperandSpec::role);
    if (found == operands_.end()) {
        throw std::out_of_range("OperationSpec - operand role is not registered");
    }
    return *found;
}

bool OperationSpec::preserves_output(OperandRole role) const {
    if (!is_output_role(role)) {
        throw std::invalid_argument("OperationSpec::preserves_output - role is not an output");
    }
    return operand(role).access == OperandAccess::read_write;
}

OperationHandle OperationSpec::handle() const {
    if (!has_handle()) {
        throw std::logic_error("OperationSpec::handle - operation catalogue has not been sealed");
    }
    return handle_;
}

void OperationSpec::assign_handle(OperationHandle handle) {
    if (handle_ != OperationHandle::unassigned || handle == OperationHandle::unassigned) {
        throw std::logic_error("OperationSpec::assign_handle - invalid handle assignment");
    }
    handle_ = handle;
}

void OperationSpec::validate(std::span<const OperandDescriptor> descriptors) const {
    if (descriptors.size() != operands_.size()) {
        throw std::invalid_argument("OperationSpec - operand arity mismatch");
    }
    for (std::size_t index = 0; index < operands_.size(); ++index) {
        const OperationOperandSpec& expected = operands_[index];
        if (descriptors[index].role() != expected.role) {
            throw std::invalid_argument(
                "OperationSpec - operands do not match the registered role order");
        }
        if (expected.kind && descriptors[index].kind() != *expected.kind) {
            throw std::invalid_argument(
                "OperationSpec - operand family does not match the registered contract");
        }
    }
    if (validator_) {
        validator_(descriptors);
    }
}

} // namespace Tessaline
