// SPDX-License-Identifier: Apache-2.0
#pragma once

// Typed access of C++ callers to the elements of operands in host memory.
//
// Each function raises std::invalid_argument for an operand on a device and std::logic_error when
// the operand has no such buffer or T is not its exact element type. Spans are valid while the
// operand lives, which is why temporaries are refused; elements must not be touched while an
// operation that uses them runs.

#include "tessaline/frontend/eigen_values.h"
#include "tessaline/frontend/lu_factorisation.h"
#include "tessaline/frontend/matrix.h"
#include "tessaline/frontend/scalar.h"
#include "tessaline/frontend/vector.h"

namespace Tessaline {

namespace ElementsDetail {

/// Raises std::invalid_argument for a device.
TESSALINE_API void require_host(const DataTopologyDescriptor& topology);

template <BufferElement T, typename Handle>
auto span_of(Handle& handle, BufferRole role, std::uint64_t count) {
    require_host(handle.topology());
    return std::span(require_buffer_data<T>(erased_buffers(handle.entity(), "elements"), role,
                                            count, "elements"),
                     count);
}

} // namespace ElementsDetail

/// The elements of a vector, or with a role one part of a split one.
template <BufferElement T>
std::span<T> elements(Vector& vector, BufferRole role = BufferRole::data) {
    return ElementsDetail::span_of<T>(vector, role, vector.size());
}
template <BufferElement T>
std::span<const T> elements(const Vector& vector, BufferRole role = BufferRole::data) {
    return ElementsDetail::span_of<T>(vector, role, vector.size());
}
template <BufferElement T>
std::span<const T> elements(const Vector&&, BufferRole = BufferRole::data) = delete;

/// The elements of a matrix in the order of its layout, or with a role one part of a split one.
template <BufferElement T>
std::span<T> elements(Matrix& matrix, BufferRole role = BufferRole::data) {
    return ElementsDetail::span_of<T>(matrix, role, matrix.size());
}
template <BufferElement T>
std::span<const T> elements(const Matrix& matrix, BufferRole role = BufferRole::data) {
    return ElementsDetail::span_of<T>(matrix, role, matrix.size());
}
template <BufferElement T>
std::span<const T> elements(const Matrix&&, BufferRole = BufferRole::data) = delete;

/// The value of a scalar; T is its stored type, complex for a complex one.
template <CompiledElement T>
T value(const Scalar& scalar) {
    if constexpr (is_complex_element<T>) {
        using Part = Component<T>;
        return T(ElementsDetail::span_of<Part>(scalar, BufferRole::real, 1)[0],
                 ElementsDetail::span_of<Part>(scalar, BufferRole::imaginary, 1)[0]);
    } else {
        return ElementsDetail::span_of<T>(scalar, BufferRole::data, 1)[0];
    }
}

/// The column-major factors, L below the diagonal and U on and above it once factorised.
template <CompiledElement T>
std::span<const T> factors(const LuFactorisation& lu) {
    return ElementsDetail::span_of<T>(lu, BufferRole::lu_factors, lu.size() * lu.size());
}
template <CompiledElement T>
std::span<const T> factors(const LuFactorisation&&) = delete;

/// For each column the row, counted from 1, that it was swapped with.
TESSALINE_API std::span<const long> pivots(const LuFactorisation& lu);
std::span<const long> pivots(const LuFactorisation&&) = delete;

/// How many rows the factorisation swapped.
TESSALINE_API std::uint64_t swap_count(const LuFactorisation& lu);

template <CompiledElement T>
std::span<const T> eigenvalues(const EigenValues& eigen) {
    return ElementsDetail::span_of<T>(eigen, BufferRole::eigenvalues, eigen.size());
}
template <CompiledElement T>
std::span<const T> eigenvalues(const EigenValues&&) = delete;

/// The matrix of eigenvectors in the order of its layout: column by column, so that each is
/// contiguous, when that is column major.
template <CompiledElement T>
std::span<const T> eigenvectors(const EigenValues& eigen) {
    return ElementsDetail::span_of<T>(eigen, BufferRole::eigenvectors, eigen.size() * eigen.size());
}
template <CompiledElement T>
std::span<const T> eigenvectors(const EigenValues&&) = delete;

} // namespace Tessaline
