// SPDX-License-Identifier: Apache-2.0
#include "frontend/describe_operations.h"

#include <algorithm>
#include <tuple>
#include <unordered_map>

namespace Tessaline {

namespace {

/// One number for a format of any kind: 0 without a format, then vector formats, then matrix ones.
std::int32_t format_code(const OperandFormat& format) {
    switch (format.tag) {
    case OperandFormat::Tag::none:
        return 0;
    case OperandFormat::Tag::vector:
        return format.value + 1;
    case OperandFormat::Tag::matrix:
        break;
    }
    return format.value + 3;
}

auto order_of(const OperationImplementationOperand& operand) {
    const BackendOperandKey& key = operand.key;
    return std::tuple(operand.role, key.kind, key.location, key.storage, key.compute, key.complex,
                      format_code(key.format), key.layout.has_value(),
                      key.layout.value_or(DataMatrixLayout::row_major));
}

bool operand_before(const OperationImplementationOperand& a,
                    const OperationImplementationOperand& b) {
    return order_of(a) < order_of(b);
}

bool implementation_before(const OperationImplementationDescription& a,
                           const OperationImplementationDescription& b) {
    if (a.backend != b.backend) {
        return a.backend < b.backend;
    }
    const bool a_first =
        std::ranges::lexicographical_compare(a.operands, b.operands, operand_before);
    const bool b_first =
        std::ranges::lexicographical_compare(b.operands, a.operands, operand_before);
    if (a_first || b_first) {
        return a_first;
    }
    // An absent version sorts before a present one.
    return std::tie(a.provenance.id(), a.provenance.version()) <
           std::tie(b.provenance.id(), b.provenance.version());
}

OperationImplementationDescription describe_implementation(const OperationSpec& spec,
                                                           const BackendRegistryKey& key,
                                                           const RegisteredBackend& backend) {
    std::vector<OperationImplementationOperand> operands;
    operands.reserve(spec.operands().size());
    const auto add = [&operands](const OperationOperandSpec& operand,
                                 const BackendOperandKey& operand_key) {
        operands.push_back({operand.role, operand.access, operand_key});
    };
    // A registry made without a builder may hold a row of another arity than its operation's.
    for (std::size_t index = 0; index < std::min(key.inputs().size(), spec.input_count());
         ++index) {
        add(spec.operands()[index], key.inputs()[index]);
    }
    for (std::size_t index = 0; index < std::min(key.output_count(), spec.output_count());
         ++index) {
        add(spec.outputs()[index], key.outputs()[index]);
    }
    return {key.backend(), std::move(operands), backend.provenance(), backend.numerics()};
}

} // namespace

std::vector<OperationDescription> describe_operations(const OperationRegistry& operations,
                                                      const BackendRegistry& backends) {
    std::unordered_map<OperationId, std::vector<OperationImplementationDescription>,
                       OperationId::Hash>
        implementations;
    for (const auto& [key, backend] : backends.registrations()) {
        implementations[key.op()].push_back(
            describe_implementation(operations.operation(key.op()), key, backend));
    }
    std::vector<OperationDescription> descriptions;
    descriptions.reserve(operations.size());
    for (const auto& [id, registration] : operations.registrations()) {
        const OperationSpec& spec = registration.operation();
        auto& found = implementations[id];
        std::ranges::sort(found, implementation_before);
        descriptions.push_back({id,
                                {spec.operands().begin(), spec.operands().end()},
                                registration.provenance(),
                                std::move(found),
                                spec.numerics()});
    }
    std::ranges::sort(descriptions, {}, [](const OperationDescription& description) {
        return description.id.canonical();
    });
    return descriptions;
}

} // namespace Tessaline
