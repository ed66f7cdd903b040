// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_descriptor.h"

#include <iterator>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

std::vector<OperandDescriptor> single(OperandDescriptor descriptor) {
    std::vector<OperandDescriptor> list;
    list.push_back(std::move(descriptor));
    return list;
}

void append_placements(std::vector<OperandPlacement>& placements,
                       std::span<const OperandDescriptor> operands, bool writes) {
    for (const OperandDescriptor& operand : operands) {
        placements.push_back({operand.role(), operand.topology(), writes});
    }
}

} // namespace

OperationDescriptor::OperationDescriptor(const OperationSpec& spec,
                                         std::vector<OperandDescriptor> inputs,
                                         std::vector<OperandDescriptor> outputs,
                                         CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling)
    : id_(spec.id()),
      handle_(spec.handle()),
      cross_device_policy_(policy),
      operands_(std::move(inputs)),
      input_count_(operands_.size()) {
    for (const OperationOperandSpec& output : spec.outputs()) {
        preserved_outputs_.push_back(output.access == OperandAccess::read_write);
    }
    if (input_count_ != spec.input_count()) {
        throw std::invalid_argument("OperationDescriptor - input arity mismatch");
    }
    if (outputs.size() != spec.output_count()) {
        throw std::invalid_argument("OperationDescriptor - output arity mismatch");
    }
    operands_.insert(operands_.end(), std::make_move_iterator(outputs.begin()),
                     std::make_move_iterator(outputs.end()));
    spec.validate(operands_);

    std::vector<OperandPlacement> placements;
    placements.reserve(operands_.size());
    append_placements(placements, this->outputs(), true);
    append_placements(placements, this->inputs(), false);
    gpu_device_id_ =
        schedule_gpu_execution_device(placements, policy, scheduling, "OperationDescriptor");
}

OperationDescriptor::OperationDescriptor(const OperationSpec& spec,
                                         std::vector<OperandDescriptor> inputs,
                                         OperandDescriptor output, CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling)
    : OperationDescriptor(spec, std::move(inputs), single(std::move(output)), policy, scheduling) {}

OperationDescriptor::OperationDescriptor(const OperationSpec& spec, OperandDescriptor output,
                                         CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling)
    : OperationDescriptor(spec, {}, single(std::move(output)), policy, scheduling) {}

std::vector<OperandRole> OperationDescriptor::output_roles() const {
    std::vector<OperandRole> roles;
    roles.reserve(output_count());
    for (const OperandDescriptor& output : outputs()) {
        roles.push_back(output.role());
    }
    return roles;
}

bool OperationDescriptor::preserves_output(OperandRole role) const {
    if (!is_output_role(role)) {
        throw std::invalid_argument(
            "OperationDescriptor::preserves_output - role is not an output");
    }
    const std::size_t index = output_index(role);
    if (index >= output_count() || outputs()[index].role() != role) {
        throw std::out_of_range("OperationDescriptor::preserves_output - output is not registered");
    }
    return preserved_outputs_[index];
}

} // namespace Tessaline
