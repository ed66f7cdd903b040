// SPDX-License-Identifier: Apache-2.0
#pragma once

// The typed key of an implementation: operation, backend family and, operand by operand, exactly
// which data it accepts.

#include "tessaline/catalogue/execution_policy.h"
#include "tessaline/catalogue/operation_id.h"

#include <optional>
#include <string>
#include <vector>

namespace Tessaline {

/// What an implementation accepts, or a request has, in one operand. Role, dimensions, device
/// ordinal and NUMA placement are left out on purpose: they never influence the choice.
struct TESSALINE_API BackendOperandKey {
    OperandKind kind = OperandKind::Scalar;
    DataLocation location = DataLocation::pageable_host;
    OperandFormat format;
    ScalarType storage = ScalarType::Float32;
    ScalarType compute = ScalarType::Float32;
    DataComplexLayout complex = DataComplexLayout::none;
    std::optional<DataMatrixLayout> layout; ///< empty for scalars and vectors

    friend bool operator==(const BackendOperandKey&, const BackendOperandKey&) = default;
};

/// The key of an actual operand.
TESSALINE_API BackendOperandKey operand_key_for(const OperandDescriptor& operand);

/// "kind=1,location=0,storage=0,compute=0,complex=0,format=1,layout=-": numbers, where `format` is
/// the tag; for error messages.
TESSALINE_API std::string describe_operand_key(const BackendOperandKey& key);

/// The full key of an implementation.
class TESSALINE_API BackendRegistryKey {
  public:
    /// Raises std::invalid_argument without outputs.
    BackendRegistryKey(BackendKind backend, OperationId op, std::vector<BackendOperandKey> inputs,
                       std::vector<BackendOperandKey> outputs);
    BackendRegistryKey(BackendKind backend, OperationId op, std::vector<BackendOperandKey> inputs,
                       BackendOperandKey output);

    BackendKind backend() const { return backend_; }
    const OperationId& op() const { return op_; }
    const std::vector<BackendOperandKey>& inputs() const { return inputs_; }
    /// Unchecked.
    const BackendOperandKey& get_input(std::size_t index) const { return inputs_[index]; }
    const std::vector<BackendOperandKey>& outputs() const { return outputs_; }
    /// The first output.
    const BackendOperandKey& output() const { return outputs_.front(); }
    std::size_t output_count() const { return outputs_.size(); }

    friend bool operator==(const BackendRegistryKey&, const BackendRegistryKey&) = default;

    struct TESSALINE_API Hash {
        std::size_t operator()(const BackendRegistryKey& key) const noexcept;
    };

  private:
    BackendKind backend_;
    OperationId op_;
    std::vector<BackendOperandKey> inputs_;
    std::vector<BackendOperandKey> outputs_;
};

/// "backend=1,inputs=[...;...],outputs=[...]"; for error messages.
TESSALINE_API std::string describe_registry_key(const BackendRegistryKey& key);

} // namespace Tessaline
