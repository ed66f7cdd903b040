// SPDX-License-Identifier: Apache-2.0
#pragma once

// Operands of an operation: their roles, kinds and access, and the descriptor of an actual one.

#include "tessaline/catalogue/shape_descriptors.h"

#include <stdexcept>
#include <string>
#include <variant>

namespace Tessaline {

/// The place of an operand in its operation. Bit 31 is set for an output, bits 0 to 30 are the
/// index, so that ascending order puts inputs before outputs. The encoding is public: it appears in
/// template arguments and in plugin records.
enum class OperandRole : std::uint32_t {};

/// The number of input roles, and of output roles.
inline constexpr std::uint32_t operand_role_limit = 0x80000000U;

constexpr bool is_output_role(OperandRole role) {
    return static_cast<std::uint32_t>(role) >= operand_role_limit;
}

/// The role of input `index`. Raises std::out_of_range from 2147483648 on.
constexpr OperandRole input_role(std::uint64_t index) {
    if (index >= operand_role_limit) {
        throw std::out_of_range("input_role - input index is out of range");
    }
    return OperandRole{static_cast<std::uint32_t>(index)};
}
/// The role of output `index`. Raises std::out_of_range from 2147483648 on.
constexpr OperandRole output_role(std::uint64_t index) {
    if (index >= operand_role_limit) {
        throw std::out_of_range("output_role - output index is out of range");
    }
    return OperandRole{static_cast<std::uint32_t>(index) | operand_role_limit};
}
/// The index of an input role. Raises std::invalid_argument for an output role.
TESSALINE_API std::uint32_t input_index(OperandRole role);
/// The index of an output role. Raises std::invalid_argument for an input role.
TESSALINE_API std::uint32_t output_index(OperandRole role);
/// "Input0", "Output1".
TESSALINE_API std::string operand_role_name(OperandRole role);

/// How an operation uses an operand. The prior content of a `read_write` output is part of what the
/// operation reads: it must be preserved on its way in.
enum class OperandAccess : std::int32_t { read = 0, write = 1, read_write = 2 };

/// The enumerator's name, and "unknown" for any other value.
TESSALINE_API const char* operand_access_name(OperandAccess access);

enum class OperandKind : std::int32_t {
    Scalar = 0,
    Vector = 1,
    Matrix = 2,
    LuDecomp = 3,
    EigenVals = 4,
};

/// "scalar", "vector", "matrix", "lu", "eigen", and "unknown" for a value outside the enumeration.
TESSALINE_API const char* operand_kind_name(OperandKind kind);

/// The format of an operand, whatever its kind. The value is a DataVectorFormat under the tag
/// `vector` and a DataMatrixFormat under the tag `matrix`; it is 0 and without meaning for a
/// scalar.
struct OperandFormat {
    enum class Tag : std::uint8_t { none = 0, vector = 1, matrix = 2 };

    Tag tag = Tag::none;
    std::int32_t value = 0;

    static constexpr OperandFormat of(DataVectorFormat format) {
        return {Tag::vector, static_cast<std::int32_t>(format)};
    }
    static constexpr OperandFormat of(DataMatrixFormat format) {
        return {Tag::matrix, static_cast<std::int32_t>(format)};
    }
    /// The dense format of a kind: none for scalars, and that of their matrices for structured
    /// ones.
    static constexpr OperandFormat dense(OperandKind kind) {
        switch (kind) {
        case OperandKind::Scalar:
            return {};
        case OperandKind::Vector:
            return of(DataVectorFormat::dense);
        default:
            return of(DataMatrixFormat::dense);
        }
    }

    friend constexpr bool operator==(const OperandFormat& a, const OperandFormat& b) {
        return a.tag == b.tag && (a.tag == Tag::none || a.value == b.value);
    }
};

/// One actual operand: its role and what it is. The order of the alternatives is OperandKind.
class TESSALINE_API OperandDescriptor {
  public:
    using Alternative = std::variant<ScalarDescriptor, VectorDescriptor, MatrixDescriptor,
                                     LuDecompDescriptor, EigenValsDescriptor>;

    OperandDescriptor(OperandRole role, Alternative descriptor)
        : role_(role),
          descriptor_(std::move(descriptor)) {}

    OperandRole role() const { return role_; }
    const Alternative& descriptor() const { return descriptor_; }

    /// The held alternative, or null when it is another kind.
    const ScalarDescriptor* scalar() const { return std::get_if<ScalarDescriptor>(&descriptor_); }
    const VectorDescriptor* vector() const { return std::get_if<VectorDescriptor>(&descriptor_); }
    const MatrixDescriptor* matrix() const { return std::get_if<MatrixDescriptor>(&descriptor_); }
    const LuDecompDescriptor* lu_decomp() const {
        return std::get_if<LuDecompDescriptor>(&descriptor_);
    }
    const EigenValsDescriptor* eigen_vals() const {
        return std::get_if<EigenValsDescriptor>(&descriptor_);
    }

    OperandKind kind() const { return static_cast<OperandKind>(descriptor_.index()); }
    const DataTopologyDescriptor& topology() const;
    /// The operand's type; for an LU operand that of the factors.
    const DataTypeDescriptor& type() const;
    /// No format for a scalar; an eigen operand answers its vector format as a matrix format.
    OperandFormat format() const;

  private:
    OperandRole role_;
    Alternative descriptor_;
};

} // namespace Tessaline
