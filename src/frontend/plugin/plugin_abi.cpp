// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/plugin_abi.h"

#include "catalogue/enumeration_words.h"
#include "catalogue/require.h"

#include <algorithm>
#include <array>

namespace Tessaline::PluginDetail::Internal {

namespace {

/// What a plugin reads in `buffer_view_stride_hint`; part of the frozen interface.
constexpr std::uint32_t buffer_view_stride_hint = 36;

/// Indexed by the interface's value.
constexpr std::array abi_scalar_types{
    std::optional<ScalarType>(), // absent
    std::optional(ScalarType::Float32),
    std::optional(ScalarType::Float64),
    std::optional(ScalarType::Int32),
    std::optional(ScalarType::Int64),
    std::optional(ScalarType::Complex64),
    std::optional(ScalarType::Complex128),
    std::optional<ScalarType>(), // not assigned
    std::optional(ScalarType::ComplexInt32),
    std::optional(ScalarType::ComplexInt64),
    std::optional(ScalarType::Float16),
    std::optional(ScalarType::UInt32),
    std::optional(ScalarType::UInt64),
    std::optional(ScalarType::BFloat16),
    std::optional(ScalarType::Complex32),
};

/// Interface values of an enumeration start at 1, its own at 0.
template <typename Enumeration>
Enumeration from_abi(unsigned value, Enumeration last, const char* message) {
    require(value >= 1 && value - 1 <= static_cast<unsigned>(last), message);
    return static_cast<Enumeration>(value - 1);
}

template <typename Enumeration>
std::uint32_t to_abi(Enumeration value) {
    return static_cast<std::uint32_t>(value) + 1;
}

void set_complex_layout(BackendOperandKey& key, const tessaline_backend_operand& record,
                        const DataTypeDescriptor& type) {
    key.complex = from_abi(record.complex_layout, DataComplexLayout::interleaved,
                           "native plugin declared an invalid complex layout");
    // The parts of a scalar always lie in two buffers, so it has no layout to choose.
    const bool has_layout = type.is_complex() && key.kind != OperandKind::Scalar;
    require((key.complex != DataComplexLayout::none) == has_layout,
            "native plugin operand complex layout disagrees with its logical dtype");
}

void set_matrix_layout(BackendOperandKey& key, const tessaline_backend_operand& record) {
    const bool has_layout = record.matrix_layout != TESSALINE_MATRIX_LAYOUT_NONE;
    if (has_layout) {
        key.layout = from_abi(record.matrix_layout, DataMatrixLayout::column_major,
                              "native plugin declared an invalid matrix layout");
    }
    if (key.kind == OperandKind::Scalar || key.kind == OperandKind::Vector) {
        require(!has_layout, "native plugin scalar and vector kernels require "
                             "TESSALINE_MATRIX_LAYOUT_NONE");
    } else {
        require(has_layout,
                "native plugin matrix kernels require row-major or column-major layout");
    }
}

void set_square(tessaline_operand_view& view, std::uint64_t order, DataMatrixLayout layout) {
    view.rows = order;
    view.cols = order;
    view.matrix_layout = to_abi(layout);
}

/// Fills what depends on the kind of an operand.
struct ShapeOf {
    tessaline_operand_view& view;

    void operator()(const ScalarDescriptor&) const {}
    void operator()(const VectorDescriptor& vector) const {
        view.complex_layout = to_abi(vector.complex_layout());
        view.rows = vector.size();
    }
    void operator()(const MatrixDescriptor& matrix) const {
        view.complex_layout = to_abi(matrix.complex_layout());
        view.matrix_layout = to_abi(matrix.layout());
        view.rows = matrix.rows();
        view.cols = matrix.cols();
    }
    void operator()(const LuDecompDescriptor& lu) const {
        view.complex_layout = to_abi(lu.complex_layout());
        set_square(view, lu.size(), lu.layout());
    }
    void operator()(const EigenValsDescriptor& eigen) const {
        view.complex_layout = to_abi(eigen.complex_layout());
        set_square(view, eigen.size(), eigen.vector_layout());
    }
};

} // namespace

const char* status_name(tessaline_status status) {
    static constexpr std::array words{
        "TESSALINE_STATUS_OK", "TESSALINE_STATUS_INVALID_ARGUMENT", "TESSALINE_STATUS_UNSUPPORTED",
        "TESSALINE_STATUS_RUNTIME_ERROR", "TESSALINE_STATUS_INTERNAL_ERROR"};
    return enumeration_word(words, status, "TESSALINE_STATUS_UNKNOWN");
}

OperandAccess operand_access(unsigned value) {
    return from_abi(value, OperandAccess::read_write, "native plugin declared an invalid access");
}

OperandKind operand_kind(unsigned value) {
    return from_abi(value, OperandKind::EigenVals,
                    "native plugin declared an invalid operand kind");
}

BackendKind backend_kind(unsigned value) {
    return from_abi(value, BackendKind::cuda, "native plugin declared an invalid backend");
}

ScalarType scalar_type(unsigned value) {
    require(value < abi_scalar_types.size() && abi_scalar_types[value].has_value(),
            "native plugin declared an invalid scalar type");
    return *abi_scalar_types[value];
}

std::uint32_t abi_backend(BackendKind backend) {
    const auto value = static_cast<std::uint32_t>(backend);
    return value <= static_cast<std::uint32_t>(BackendKind::cuda) ? value + 1 : 0;
}

std::uint32_t abi_buffer_element_type(ScalarType type) {
    const auto* const found = std::ranges::find(abi_scalar_types, std::optional(type));
    return found == abi_scalar_types.end()
               ? 0
               : static_cast<std::uint32_t>(found - abi_scalar_types.begin());
}

std::string copy_string(tessaline_string text, const char* what) {
    if (text.data == nullptr) {
        require(text.size == 0, (std::string(what) + " is malformed").c_str());
        return {};
    }
    return {text.data, text.size};
}

OperationId operation_id(const tessaline_operation_id& record) {
    require(record.struct_size >= sizeof(record),
            "tessaline_operation_id has an invalid struct_size");
    return {copy_string(record.name, "operation name"), record.major};
}

BackendOperandKey backend_operand_key(const tessaline_backend_operand& record) {
    require(record.struct_size >= sizeof(record),
            "tessaline_backend_operand has an invalid struct_size");
    BackendOperandKey key;
    key.kind = operand_kind(record.kind);
    key.location = from_abi(record.location, DataLocation::cuda_device,
                            "native plugin declared an invalid location");
    key.storage = scalar_type(record.storage);
    key.compute = scalar_type(record.compute);
    const auto type = DataTypeDescriptor::from_scalar_types(key.storage, key.compute);
    set_complex_layout(key, record, type);
    set_matrix_layout(key, record);
    key.format = OperandFormat::dense(key.kind);
    return key;
}

tessaline_operand_view abi_operand_view(const OperandDescriptor& descriptor, OperandAccess access) {
    require(descriptor.format() == OperandFormat::dense(descriptor.kind()),
            "native kernel invocation requires dense storage");
    tessaline_operand_view view{};
    view.struct_size = sizeof(view);
    view.buffer_view_stride_hint = buffer_view_stride_hint;
    view.role = static_cast<std::uint32_t>(descriptor.role());
    view.access = to_abi(access);
    view.kind = to_abi(descriptor.kind());
    view.location = to_abi(descriptor.topology().location());
    view.storage = abi_buffer_element_type(descriptor.type().storage_type());
    view.compute = abi_buffer_element_type(descriptor.type().compute_type());
    view.complex_layout = TESSALINE_COMPLEX_LAYOUT_NONE;
    view.matrix_layout = TESSALINE_MATRIX_LAYOUT_NONE;
    view.rows = 1;
    view.cols = 1;
    std::visit(ShapeOf{view}, descriptor.descriptor());
    return view;
}

} // namespace Tessaline::PluginDetail::Internal
