// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/products.h"

#include "backend/cpu/floating/loops.h"
#include "backend/cpu/floating/widened.h"

#include <algorithm>

namespace Tessaline {

namespace {

using SimdKernels::unfused_kernels;

/// The rows [begin, end) of C, which is row major.
template <typename T>
void multiply_rows(const UnfusedTable& kernels, const FloatingMatrix<const T>& A,
                   const WidenedRows<T>& B, const FloatingMatrix<T>& C, std::uint64_t begin,
                   std::uint64_t end) {
    const WidenedRows<T> rows_of_a(A, begin, end, kernels);
    T* result = C.data + begin * C.cols;
    const auto multiply = [&](ComputeOf<T>* sums) {
        unfused_kernels<ComputeOf<T>>(kernels).multiply(
            {rows_of_a[0], A.cols}, {B[0], C.cols}, {sums, C.cols}, {end - begin, A.cols, C.cols});
    };
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        multiply(result);
    } else {
        const std::uint64_t count = (end - begin) * C.cols;
        const Scratch<ComputeOf<T>> sums(count);
        multiply(sums.data());
        store_results(sums.data(), result, count, kernels);
    }
}

/// The elements [begin, end) of y = A x for a row-major A of elements of two bytes a part.
template <typename T>
void transform_stored_rows(const FloatingMatrix<const T>& A, const ComputeOf<T>* x, T* y,
                           std::uint64_t begin, std::uint64_t end, const UnfusedTable& kernels) {
    const auto multiply = [&](auto kernel, std::uint64_t row, ComputeOf<T>* sums,
                              std::uint64_t count) {
        const T* const first = A.data + row * A.cols;
        kernel({reinterpret_cast<const std::uint16_t*>(first), A.cols}, x, sums, count, A.cols);
    };
    ComputeOf<T> sums[sums_at_once];
    for (std::uint64_t i = begin; i < end; i += sums_at_once) {
        const std::uint64_t count = std::min(sums_at_once, end - i);
        if constexpr (is_complex_element<T>) {
            multiply(kernels.binary16.complex_row_products, i, sums, count);
            for (std::uint64_t row = 0; row < count; ++row) {
                if (std::isnan(sums[row].real()) && std::isnan(sums[row].imag())) {
                    // A term may have lost an infinity.
                    sums[row] = {};
                    for (std::uint64_t k = 0; k < A.cols; ++k) {
                        sums[row] += widened(A(i + row, k)) * x[k];
                    }
                }
            }
        } else {
            multiply(stored_kernels<T>(kernels).row_products, i, sums, count);
        }
        store_results(sums, y + i, count, kernels);
    }
}

/// The elements [begin, end) of y = A x.
template <typename T>
void transform(const UnfusedTable& kernels, const FloatingMatrix<const T>& A, const ComputeOf<T>* x,
               T* y, std::uint64_t begin, std::uint64_t end) {
    const auto& products = unfused_kernels<ComputeOf<T>>(kernels);
    if constexpr (!std::is_same_v<T, ComputeOf<T>>) {
        if (A.is_row_major()) {
            transform_stored_rows(A, x, y, begin, end, kernels);
            return;
        }
        for (std::uint64_t i = begin; i < end; i += widened_tile_rows) {
            const std::uint64_t count = std::min(widened_tile_rows, end - i);
            const WidenedRows<T> rows(A, i, i + count, kernels);
            ComputeOf<T> sums[widened_tile_rows];
            products.row_products({rows[0], A.cols}, x, sums, count, A.cols);
            store_results(sums, y + i, count, kernels);
        }
    } else if (A.is_row_major()) {
        products.row_products({A.data + begin * A.cols, A.cols}, x, y + begin, end - begin, A.cols);
    } else {
        // One row, x, times the transpose of A.
        products.multiply({x, A.cols}, {A.data + begin, A.rows}, {y + begin, A.rows},
                          {1, A.cols, end - begin});
    }
}

} // namespace

template <typename T>
void multiply_matrices(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
                       const FloatingMatrix<T>& C, const UnfusedTable& kernels) {
    if (!C.is_row_major()) {
        // Its transpose, of the transposed factors: products commute bit for bit.
        multiply_matrices(B.transposed(), A.transposed(), C.transposed(), kernels);
        return;
    }
    // Without an inner dimension there are still the zeros to write.
    const std::uint64_t work = work_of(C.rows, std::max<std::uint64_t>(A.cols, 1), C.cols);
    const WidenedRows<T> rows_of_b(B, kernels);
    const bool all_at_once = std::is_same_v<T, ComputeOf<T>> && A.is_row_major();
    const auto multiply = [&](std::uint64_t begin, std::uint64_t end) {
        const std::uint64_t step = all_at_once ? end - begin : widened_product_rows;
        for (std::uint64_t i = begin; i < end; i += step) {
            multiply_rows(kernels, A, rows_of_b, C, i, std::min(end, i + step));
        }
    };
    for_chunks(C.rows, work, multiply, least_rows_of_product);
}

template <typename T>
void FloatingProducts<T>::matmul(const MatrixProduct<T>& operands, const UnfusedTable& kernels) {
    multiply_matrices<T>(operands.A, operands.B, operands.C, kernels);
}

template <typename T>
void FloatingProducts<T>::matvec(const MatrixVectorProduct<T>& operands,
                                 const UnfusedTable& kernels) {
    const std::span<const T> x = operands.x;
    const WidenedRows<T> row_of_x({x.data(), 1, x.size(), DataMatrixLayout::row_major}, kernels);
    const auto fill = [&](std::uint64_t begin, std::uint64_t end) {
        transform(kernels, operands.A, row_of_x[0], operands.y.data(), begin, end);
    };
    for_chunks(operands.A.rows, work_of(operands.A.rows, operands.A.cols), fill);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(                                                              \
        template struct FloatingProducts<Stored>; template void multiply_matrices<Stored>(         \
            const FloatingMatrix<const Stored>&, const FloatingMatrix<const Stored>&,              \
            const FloatingMatrix<Stored>&, const UnfusedTable&);)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
