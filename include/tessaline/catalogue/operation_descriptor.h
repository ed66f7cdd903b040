// SPDX-License-Identifier: Apache-2.0
#pragma once

// One concrete request: an operation applied to actual operands, checked, with its CUDA device
// chosen.

#include "tessaline/catalogue/execution_policy.h"
#include "tessaline/catalogue/operation_spec.h"

#include <vector>

namespace Tessaline {

/// Immutable once built; local to one call.
class TESSALINE_API OperationDescriptor {
  public:
    /// Operands in role order, inputs first.
    struct Operands {
        std::vector<OperandDescriptor> list;
        std::size_t input_count;
    };

    /// Inputs and outputs are given in role order. Raises std::logic_error for an operation without
    /// a handle, and std::invalid_argument for a wrong count of inputs or outputs, for whatever
    /// OperationSpec::validate refuses, and for placements that
    /// schedule_gpu_execution_device refuses, in this order.
    OperationDescriptor(const OperationSpec& spec, Operands operands, CrossDevicePolicy policy,
                        const GpuSchedulingOptions& scheduling);
    OperationDescriptor(const OperationSpec& spec, std::vector<OperandDescriptor> inputs,
                        std::vector<OperandDescriptor> outputs, CrossDevicePolicy policy,
                        const GpuSchedulingOptions& scheduling);
    OperationDescriptor(const OperationSpec& spec, std::vector<OperandDescriptor> inputs,
                        OperandDescriptor output, CrossDevicePolicy policy,
                        const GpuSchedulingOptions& scheduling);
    OperationDescriptor(const OperationSpec& spec, OperandDescriptor output,
                        CrossDevicePolicy policy, const GpuSchedulingOptions& scheduling);

    const OperationId& id() const { return id_; }
    OperationHandle handle() const { return handle_; }
    std::span<const OperandDescriptor> inputs() const {
        return std::span(operands_).first(input_count_);
    }
    std::span<const OperandDescriptor> outputs() const {
        return std::span(operands_).subspan(input_count_);
    }
    /// The first output.
    const OperandDescriptor& output() const { return operands_[input_count_]; }
    std::size_t output_count() const { return operands_.size() - input_count_; }
    std::vector<OperandRole> output_roles() const;
    CrossDevicePolicy cross_device_policy() const { return cross_device_policy_; }
    /// Empty when no operand on a device decided it.
    std::optional<std::int32_t> gpu_device_id() const { return gpu_device_id_; }

    /// Whether the operation uses the prior content of its first output.
    bool preserves_output() const { return preserves(0); }
    /// Whether it uses that of the output `role`. Raises std::invalid_argument for an input role
    /// and std::out_of_range for an output that the request does not have.
    bool preserves_output(OperandRole role) const;

  private:
    bool preserves(std::size_t output) const {
        return !preserved_outputs_.empty() && preserved_outputs_[output];
    }

    OperationId id_;
    OperationHandle handle_;
    CrossDevicePolicy cross_device_policy_;
    std::optional<std::int32_t> gpu_device_id_;
    // Inputs, then outputs, in one list: what the validator reads, without a copy.
    std::vector<OperandDescriptor> operands_;
    std::size_t input_count_;
    std::vector<bool> preserved_outputs_; ///< one bit for each output; empty when none is preserved
};

} // namespace Tessaline
