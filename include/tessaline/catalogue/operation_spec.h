// SPDX-License-Identifier: Apache-2.0
#pragma once

// The contract of an operation, apart from any implementation.

#include "tessaline/catalogue/operation_id.h"
#include "tessaline/catalogue/operation_numerics.h"
#include "tessaline/catalogue/operation_operand_spec.h"

#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace Tessaline {

/// Checks the operands of a request, inputs first, beyond role and kind; raises on a bad request.
using OperationValidator = std::function<void(std::span<const OperandDescriptor>)>;

/// Whether an output may lie in the very memory of an input. Any other sharing of memory between an
/// output and another operand is refused before an implementation is looked for.
enum class InPlaceUse : std::int32_t {
    refused,     ///< no output shares memory with an input
    elementwise, ///< an output may be an input of the same type, shape and layout: each element
                 ///< depends on the inputs' elements at its own place alone
};

class TESSALINE_API OperationSpec {
  public:
    /// `operands` are the inputs, in ascending role and with `read` access, then at least one
    /// output, in ascending role and with `write` or `read_write` access; anything else raises
    /// std::invalid_argument. `numerics` are stored in canonical form and may raise on their way
    /// there. An empty validator accepts every shape. An elementwise operation promises that every
    /// implementation reads an element of an input no later than it writes that of an output.
    OperationSpec(OperationId id, std::vector<OperationOperandSpec> operands,
                  OperationValidator validator, std::optional<OperationNumerics> numerics,
                  InPlaceUse in_place_use = InPlaceUse::refused);

    const OperationId& id() const { return id_; }
    const std::optional<OperationNumerics>& numerics() const { return numerics_; }
    InPlaceUse in_place_use() const { return in_place_use_; }

    std::span<const OperationOperandSpec> operands() const { return operands_; }
    std::size_t input_count() const { return input_count_; }
    std::size_t output_count() const { return operands_.size() - input_count_; }
    std::span<const OperationOperandSpec> outputs() const {
        return operands().subspan(input_count_);
    }
    /// The first output.
    const OperationOperandSpec& output() const { return operands_[input_count_]; }
    std::vector<OperandRole> input_roles() const;
    std::vector<OperandRole> output_roles() const;

    /// Raises std::out_of_range for a role that the operation does not have.
    const OperationOperandSpec& operand(OperandRole role) const;

    /// Whether the operation uses the prior content of its first output.
    bool preserves_output() const { return output().access == OperandAccess::read_write; }
    /// Whether it uses that of the output `role`. Raises std::invalid_argument for an input role
    /// and std::out_of_range for an output that the operation does not have.
    bool preserves_output(OperandRole role) const;

    /// Whether the operation belongs to a sealed catalogue.
    bool has_handle() const { return handle_ != OperationHandle::unassigned; }
    /// Raises std::logic_error before the catalogue is sealed.
    OperationHandle handle() const;
    /// Succeeds once, with a valid handle; raises std::logic_error otherwise.
    void assign_handle(OperationHandle handle);

    /// Checks arity, role order, kinds and shapes of a request, in this order; `descriptors` are
    /// inputs, then outputs. Raises std::invalid_argument at the first fault.
    void validate(std::span<const OperandDescriptor> descriptors) const;

  private:
    OperationId id_;
    std::vector<OperationOperandSpec> operands_;
    std::size_t input_count_;
    OperationValidator validator_;
    std::optional<OperationNumerics> numerics_;
    InPlaceUse in_place_use_;
    OperationHandle handle_ = OperationHandle::unassigned;
};

} // namespace Tessaline
