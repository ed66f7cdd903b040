// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operand.h"

#include "catalogue/enumeration_words.h"

#include <stdexcept>

namespace Tessaline {

std::uint32_t input_index(OperandRole role) {
    if (is_output_role(role)) {
        throw std::invalid_argument("input_index - output is not an input role");
    }
    return static_cast<std::uint32_t>(role);
}

std::uint32_t output_index(OperandRole role) {
    if (!is_output_role(role)) {
        throw std::invalid_argument("output_index - input is not an output role");
    }
    return static_cast<std::uint32_t>(role) & ~operand_role_limit;
}

std::string operand_role_name(OperandRole role) {
    return is_output_role(role) ? "Output" + std::to_string(output_index(role))
                                : "Input" + std::to_string(input_index(role));
}

const char* operand_access_name(OperandAccess access) {
    static constexpr std::array words{"read", "write", "read_write"};
    return enumeration_word(words, access);
}

const char* operand_kind_name(OperandKind kind) {
    static constexpr std::array words{"scalar", "vector", "matrix", "lu", "eigen"};
    return enumeration_word(words, kind);
}

const DataTopologyDescriptor& OperandDescriptor::topology() const {
    return std::visit(
        [](const auto& held) -> const auto& { return held.topology(); }, descriptor_);
}

const DataTypeDescriptor& OperandDescriptor::type() const {
    return std::visit(
        [](const auto& held) -> const auto& { return held.type(); }, descriptor_);
}

OperandFormat OperandDescriptor::format() const {
    struct Visitor {
        OperandFormat operator()(const ScalarDescriptor&) const { return {}; }
        OperandFormat operator()(const VectorDescriptor& vector) const {
            return OperandFormat::of(vector.format());
        }
        OperandFormat operator()(const MatrixDescriptor& matrix) const {
            return OperandFormat::of(matrix.format());
        }
        OperandFormat operator()(const LuDecompDescriptor& lu) const {
            return OperandFormat::of(lu.format());
        }
        OperandFormat operator()(const EigenValsDescriptor& eigen) const {
            return {OperandFormat::Tag::matrix, static_cast<std::int32_t>(eigen.vector_format())};
        }
    };
    return std::visit(Visitor{}, descriptor_);
}

} // namespace Tessaline
