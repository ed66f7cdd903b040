// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_descriptor.h"

#include <algorithm>
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

OperationDescriptor::Operands join(std::vector<OperandDescriptor> inputs,
                                   std::vector<OperandDescriptor> outputs) {
    const std::size_t input_count = inputs.size();
    inputs.insert(inputs.end(), std::make_move_iterator(outputs.begin()),
                  std::make_move_iterator(outputs.end()));
    return {std::move(inputs), input_count};
}

/// Operands on the host have no say in the choice of a device.
void append_placements(std::vector<OperandPlacement>& placements,
                       std::span<const OperandDescriptor> operands, bool writes) {
    for (const OperandDescriptor& operand : operands) {
        if (operand.topology().is_gpu()) {
            placements.push_back({operand.role(), operand.topology(), writes});
        }
    }
}

std::vector<bool> preserved_among(std::span<const OperationOperandSpec> outputs) {
    const auto is_preserved = [](const OperationOperandSpec& output) {
        return output.access == OperandAccess::read_write;
    };
    std::vector<bool> preserved;
    if (std::ranges::any_of(outputs, is_preserved)) {
        preserved.resize(outputs.size());
        std::transform(outputs.begin(), outputs.end(), preserved.begin(), is_preserved);
    }
    return preserved;
}

} // namespace

OperationDescriptor::OperationDescriptor(const OperationSpec& spec, Operands operands,
                                         CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling)
    : id_(spec.id()),
      handle_(spec.handle()),
      cross_device_policy_(policy),
      operands_(std::move(operands.list)),
      input_count_(operands.input_count),
      preserved_outputs_(preserved_among(spec.outputs())) {
    if (input_count_ != spec.input_count()) {
        throw std::invalid_argument("OperationDescriptor - input arity mismatch");
    }
    if (output_count() != spec.output_count()) {
        throw std::invalid_argument("OperationDescriptor - output arity mismatch");
    }
    spec.validate(operands_);

    std::vector<OperandPlacement> placements;
    append_placements(placements, this->outputs(), true);
    append_placements(placements, this->inputs(), false);
    gpu_device_id_ =
        schedule_gpu_execution_device(placements, policy, scheduling, "OperationDescriptor");
}

OperationDescriptor::OperationDescriptor(const OperationSpec& spec,
                                         std::vector<OperandDescriptor> inputs,
                                         std::vector<OperandDescriptor> outputs,
                                         CrossDevicePolicy policy,
                                         const GpuSchedulingOptions& scheduling)
    : OperationDescriptor(spec, join(std::move(inputs), std::move(outputs)), policy, scheduling) {}

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
    return preserves(index);
}

} // namespace Tessaline
