// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operands of floating kernels. Vectors and matrices of complex elements are interleaved, a
// complex scalar lies in two buffers. The sizes that an operation implies are checked against the
// buffers here, so that a kernel indexes freely.
//
// Every function raises std::out_of_range for a role that is not bound, std::bad_variant_access for
// an operand of another kind, and what require_buffer_data raises; those for written operands raise
// std::invalid_argument besides for one that is bound for reading.

#include "backend/cpu/numbers/floating_policies.h"
#include "tessaline/execution/backend_execution_bindings.h"
#include "tessaline/storage/buffer_access.h"
#include "tessaline/storage/element_count.h"

#include <optional>
#include <span>

namespace Tessaline {

inline constexpr std::string_view floating_kernel_name = "CPU floating kernel";

/// The shape that an operation implies for a matrix, as far as it does.
struct MatrixExtents {
    std::optional<std::uint64_t> rows;
    std::optional<std::uint64_t> cols;
};

/// A dense matrix in either order. T is const for an input.
template <typename T>
struct FloatingMatrix {
    T* data;
    std::uint64_t rows;
    std::uint64_t cols;
    DataMatrixLayout layout;

    bool is_row_major() const { return layout == DataMatrixLayout::row_major; }
    std::uint64_t row_stride() const { return is_row_major() ? cols : 1; }
    std::uint64_t col_stride() const { return is_row_major() ? 1 : rows; }
    T& operator()(std::uint64_t i, std::uint64_t j) const {
        return data[i * row_stride() + j * col_stride()];
    }
    /// The transpose in the same memory.
    FloatingMatrix transposed() const {
        return {data, cols, rows,
                is_row_major() ? DataMatrixLayout::column_major : DataMatrixLayout::row_major};
    }
};

namespace FloatingOperandDetail {

/// Raises std::invalid_argument for a binding that may only be read.
void require_writable(const OperandBinding& binding);

template <typename Entity>
Entity& writable(BackendExecutionBindings& bindings, OperandRole role) {
    const OperandBinding& binding = bindings.operands.at(role);
    require_writable(binding);
    return writable_entity<Entity>(binding);
}

template <typename Element, typename Entity>
auto* elements(Entity& entity, BufferRole role, std::uint64_t count) {
    return require_buffer_data<Element>(erased_buffers(entity, floating_kernel_name), role, count,
                                        floating_kernel_name);
}

template <typename Element, typename Entity>
auto vector(Entity& entity, std::optional<std::uint64_t> size) {
    const std::uint64_t count = size.value_or(entity.descriptor().size());
    return std::span(elements<Element>(entity, BufferRole::data, count), count);
}

template <typename Element, typename Entity>
auto matrix(Entity& entity, MatrixExtents implied) {
    const MatrixDescriptor& found = entity.descriptor();
    const std::uint64_t rows = implied.rows.value_or(found.rows());
    const std::uint64_t cols = implied.cols.value_or(found.cols());
    auto* data = elements<Element>(entity, BufferRole::data, checked_element_count(rows, cols));
    return FloatingMatrix<std::remove_pointer_t<decltype(data)>>{data, rows, cols, found.layout()};
}

} // namespace FloatingOperandDetail

/// A vector, of `size` elements where the operation implies it.
template <typename T>
std::span<const T> input_vector(BackendExecutionBindings& bindings, OperandRole role,
                                std::optional<std::uint64_t> size = std::nullopt) {
    return FloatingOperandDetail::vector<T>(bound_entity<VectorEntity>(bindings.operands.at(role)),
                                            size);
}

/// A vector that is written, of `size` elements where the operation implies it.
template <typename T>
std::span<T> output_vector(BackendExecutionBindings& bindings, OperandRole role,
                           std::optional<std::uint64_t> size = std::nullopt) {
    return FloatingOperandDetail::vector<T>(
        FloatingOperandDetail::writable<VectorEntity>(bindings, role), size);
}

/// A matrix, of the shape that the operation implies.
template <typename T>
FloatingMatrix<const T> input_matrix(BackendExecutionBindings& bindings, OperandRole role,
                                     MatrixExtents implied = {}) {
    return FloatingOperandDetail::matrix<T>(bound_entity<MatrixEntity>(bindings.operands.at(role)),
                                            implied);
}

/// A matrix that is written, of the shape that the operation implies.
template <typename T>
FloatingMatrix<T> output_matrix(BackendExecutionBindings& bindings, OperandRole role,
                                MatrixExtents implied = {}) {
    return FloatingOperandDetail::matrix<T>(
        FloatingOperandDetail::writable<MatrixEntity>(bindings, role), implied);
}

/// The value of a scalar.
template <typename T>
ComputeOf<T> input_scalar(BackendExecutionBindings& bindings, OperandRole role) {
    const auto& entity = bound_entity<ScalarEntity>(bindings.operands.at(role));
    const auto value = [&]<typename Part>(std::type_identity<Part>, BufferRole buffer) {
        return widened(*FloatingOperandDetail::elements<Part>(entity, buffer, 1));
    };
    if constexpr (is_complex_element<T>) {
        constexpr std::type_identity<Component<T>> part;
        return {value(part, BufferRole::real), value(part, BufferRole::imaginary)};
    } else {
        return value(std::type_identity<T>{}, BufferRole::data);
    }
}

/// A scalar that is written.
template <typename T>
class ScalarResult {
  public:
    ScalarResult(BackendExecutionBindings& bindings, OperandRole role) {
        auto& entity = FloatingOperandDetail::writable<ScalarEntity>(bindings, role);
        const auto part = [&](BufferRole buffer) {
            return FloatingOperandDetail::elements<Component<T>>(entity, buffer, 1);
        };
        if constexpr (is_complex_element<T>) {
            real_ = part(BufferRole::real);
            imaginary_ = part(BufferRole::imaginary);
        } else {
            real_ = part(BufferRole::data);
        }
    }

    /// Stores a result of arithmetic.
    void store(ComputeOf<T> value) const {
        if constexpr (is_complex_element<T>) {
            *real_ = result_as<Component<T>>(value.real());
            *imaginary_ = result_as<Component<T>>(value.imag());
        } else {
            *real_ = result_as<T>(value);
        }
    }

  private:
    Component<T>* real_;
    Component<T>* imaginary_ = nullptr; ///< complex elements only
};

} // namespace Tessaline
