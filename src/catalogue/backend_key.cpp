// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/backend_key.h"

#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

template <typename Value>
std::string number(Value value) {
    return std::to_string(static_cast<std::int64_t>(value));
}

/// The one mixing step of the key hash. Signed 32-bit fields arrive sign-extended.
std::uint64_t hash_combine(std::uint64_t h, std::uint64_t value) {
    return h ^ (value + 0x9e3779b9U + (h << 6U) + (h >> 2U));
}

template <typename Value>
std::uint64_t hash_field(std::uint64_t h, Value value) {
    return hash_combine(h, static_cast<std::uint64_t>(static_cast<std::int64_t>(value)));
}

std::uint64_t hash_operands(std::uint64_t h, const std::vector<BackendOperandKey>& operands) {
    h = hash_combine(h, operands.size());
    for (const BackendOperandKey& operand : operands) {
        h = hash_field(h, operand.kind);
        h = hash_field(h, operand.location);
        h = hash_field(h, operand.format.tag);
        if (operand.format.tag != OperandFormat::Tag::none) {
            h = hash_field(h, operand.format.value);
        }
        h = hash_field(h, operand.storage);
        h = hash_field(h, operand.compute);
        h = hash_field(h, operand.complex);
        h = hash_field(h, operand.layout.value_or(DataMatrixLayout::row_major));
    }
    return h;
}

std::string describe_operands(const std::vector<BackendOperandKey>& operands) {
    std::string text;
    for (const BackendOperandKey& operand : operands) {
        text += (text.empty() ? "" : ";") + describe_operand_key(operand);
    }
    return text;
}

} // namespace

BackendOperandKey operand_key_for(const OperandDescriptor& operand) {
    BackendOperandKey key;
    key.kind = operand.kind();
    key.location = operand.topology().location();
    key.format = operand.format();
    key.storage = operand.type().storage_type();
    key.compute = operand.type().compute_type();
    if (const auto* vector = operand.vector()) {
        key.complex = vector->complex_layout();
    } else if (const auto* matrix = operand.matrix()) {
        key.complex = matrix->complex_layout();
        key.layout = matrix->layout();
    } else if (const auto* lu = operand.lu_decomp()) {
        key.complex = lu->complex_layout();
        key.layout = lu->layout();
    } else if (const auto* eigen = operand.eigen_vals()) {
        key.complex = eigen->complex_layout();
        key.layout = eigen->vector_layout();
    }
    return key;
}

std::string describe_operand_key(const BackendOperandKey& key) {
    return "kind=" + number(key.kind) + ",location=" + number(key.location) +
           ",storage=" + number(key.storage) + ",compute=" + number(key.compute) +
           ",complex=" + number(key.complex) + ",format=" + number(key.format.tag) +
           ",layout=" + (key.layout ? number(*key.layout) : "-");
}

BackendRegistryKey::BackendRegistryKey(BackendKind backend, OperationId op,
                                       std::vector<BackendOperandKey> inputs,
                                       std::vector<BackendOperandKey> outputs)
    : backend_(backend),
      op_(std::move(op)),
      inputs_(std::move(inputs)),
      outputs_(std::move(outputs)) {
    if (outputs_.empty()) {
        throw std::invalid_argument("BackendRegistryKey - at least one output is required");
    }
}

BackendRegistryKey::BackendRegistryKey(BackendKind backend, OperationId op,
                                       std::vector<BackendOperandKey> inputs,
                                       BackendOperandKey output)
    : BackendRegistryKey(backend, std::move(op), std::move(inputs),
                         std::vector<BackendOperandKey>{output}) {}

std::size_t BackendRegistryKey::Hash::operator()(const BackendRegistryKey& key) const noexcept {
    std::uint64_t h = OperationId::Hash{}(key.op());
    h = hash_field(h, key.backend());
    h = hash_operands(h, key.inputs());
    return hash_operands(h, key.outputs());
}

std::string describe_registry_key(const BackendRegistryKey& key) {
    return "backend=" + number(key.backend()) + ",inputs=[" + describe_operands(key.inputs()) +
           "],outputs=[" + describe_operands(key.outputs()) + "]";
}

} // namespace Tessaline
