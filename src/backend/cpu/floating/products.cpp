// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/products.h"

#include "backend/cpu/floating/loops.h"
#include "backend/cpu/floating/widened.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// Those for the compute type of T.
template <typename T>
using Kernels = SimdKernels::UnfusedKernels<ComputeOf<T>>;

/// Columns of C whose sums are under way at once: with the row of B beside them they stay in the
/// first cache, 8 KiB for complex128.
constexpr std::uint64_t columns_in_flight = 256;

/// Row i of C from column `first` on, at most columns_in_flight of it. The loop over k is the outer
/// one, so that the inner one streams a row of B; each sum still takes its terms by increasing k.
template <typename T>
void multiply_row_piece(const FloatingMatrix<const T>& A, const WidenedRows<T>& B,
                        const FloatingMatrix<T>& C, std::uint64_t i, std::uint64_t first) {
    const std::uint64_t count = std::min(columns_in_flight, C.cols - first);
    ComputeOf<T> sums[columns_in_flight]{};
    for (std::uint64_t k = 0; k < A.cols; ++k) {
        const ComputeOf<T> a = widened(A(i, k));
        const ComputeOf<T>* b = B[k] + first;
        for (std::uint64_t j = 0; j < count; ++j) {
            sums[j] += a * b[j];
        }
    }
    for (std::uint64_t j = 0; j < count; ++j) {
        C(i, first + j) = result_as<T>(sums[j]);
    }
}

template <typename T>
void multiply_plainly(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
                      const FloatingMatrix<T>& C, std::uint64_t work) {
    const WidenedRows<T> rows_of_b(B);
    for_chunks(C.rows, work, [&](std::uint64_t begin, std::uint64_t end) {
        for (std::uint64_t i = begin; i < end; ++i) {
            for (std::uint64_t j = 0; j < C.cols; j += columns_in_flight) {
                multiply_row_piece(A, rows_of_b, C, i, j);
            }
        }
    });
}

/// Rows of C that are under way at once where A or C is not in the form that a kernel takes: few,
/// so that their copies stay in the caches, but enough to pay for the packing of B.
constexpr std::uint64_t rows_in_flight = 256;

/// The rows [begin, end) of C, which is row major.
template <typename T>
void multiply_rows(const Kernels<T>& kernels, const FloatingMatrix<const T>& A,
                   const WidenedRows<T>& B, const FloatingMatrix<T>& C, std::uint64_t begin,
                   std::uint64_t end) {
    const WidenedRows<T> rows_of_a(A, begin, end);
    T* result = C.data + begin * C.cols;
    const auto multiply = [&](ComputeOf<T>* sums) {
        kernels.multiply({rows_of_a[0], A.cols}, {B[0], C.cols}, {sums, C.cols},
                         {end - begin, A.cols, C.cols});
    };
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        multiply(result);
    } else {
        const std::uint64_t count = (end - begin) * C.cols;
        const Scratch<ComputeOf<T>> sums(count);
        multiply(sums.data());
        store_results(sums.data(), result, count);
    }
}

template <typename T>
void multiply_by_kernels(const Kernels<T>& kernels, const FloatingMatrix<const T>& A,
                         const FloatingMatrix<const T>& B, const FloatingMatrix<T>& C,
                         std::uint64_t work) {
    if (!C.is_row_major()) {
        // Its transpose, of the transposed factors: products commute bit for bit.
        multiply_by_kernels(kernels, B.transposed(), A.transposed(), C.transposed(), work);
        return;
    }
    const WidenedRows<T> rows_of_b(B);
    const bool all_at_once = std::is_same_v<T, ComputeOf<T>> && A.is_row_major();
    const auto multiply = [&](std::uint64_t begin, std::uint64_t end) {
        const std::uint64_t step = all_at_once ? end - begin : rows_in_flight;
        for (std::uint64_t i = begin; i < end; i += step) {
            multiply_rows(kernels, A, rows_of_b, C, i, std::min(end, i + step));
        }
    };
    for_chunks(C.rows, work, multiply, least_rows_of_product);
}

template <typename T>
void transform_plainly(const FloatingMatrix<const T>& A, const ComputeOf<T>* x, T* y,
                       std::uint64_t begin, std::uint64_t end) {
    sum_side_by_side<ComputeOf<T>>(
        begin, end, A.cols,
        [&](std::uint64_t i, std::uint64_t k) { return widened(A(i, k)) * x[k]; },
        [y](std::uint64_t i, ComputeOf<T> sum) { y[i] = result_as<T>(sum); });
}

/// Rows that are widened at once for a product with a vector: as many as a tile of the kernel has.
constexpr std::uint64_t widened_rows = 16;

/// The elements [begin, end) of y = A x for a row-major A of elements of two bytes a part.
template <typename T>
void transform_stored_rows(const FloatingMatrix<const T>& A, const ComputeOf<T>* x, T* y,
                           std::uint64_t begin, std::uint64_t end) {
    const SimdKernels::StoredKernels& kernels = *SimdKernels::unfused_table();
    const auto multiply = [&](auto kernel, std::uint64_t row, ComputeOf<T>* sums,
                              std::uint64_t count) {
        const T* const first = A.data + row * A.cols;
        kernel({reinterpret_cast<const std::uint16_t*>(first), A.cols}, x, sums, count, A.cols);
    };
    constexpr std::uint64_t rows_at_once = 512;
    ComputeOf<T> sums[rows_at_once];
    for (std::uint64_t i = begin; i < end; i += rows_at_once) {
        const std::uint64_t count = std::min(rows_at_once, end - i);
        if constexpr (is_complex_element<T>) {
            multiply(kernels.row_products_complex_binary16, i, sums, count);
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
            multiply(std::is_same_v<T, Float16> ? kernels.row_products_binary16
                                                : kernels.row_products_bfloat16,
                     i, sums, count);
        }
        store_results(sums, y + i, count);
    }
}

/// The elements [begin, end) of y = A x.
template <typename T>
void transform_by_kernels(const Kernels<T>& kernels, const FloatingMatrix<const T>& A,
                          const ComputeOf<T>* x, T* y, std::uint64_t begin, std::uint64_t end) {
    if constexpr (!std::is_same_v<T, ComputeOf<T>>) {
        if (A.is_row_major()) {
            transform_stored_rows(A, x, y, begin, end);
            return;
        }
        for (std::uint64_t i = begin; i < end; i += widened_rows) {
            const std::uint64_t count = std::min(widened_rows, end - i);
            const WidenedRows<T> rows(A, i, i + count);
            ComputeOf<T> sums[widened_rows];
            kernels.row_products({rows[0], A.cols}, x, sums, count, A.cols);
            store_results(sums, y + i, count);
        }
    } else if (A.is_row_major()) {
        kernels.row_products({A.data + begin * A.cols, A.cols}, x, y + begin, end - begin, A.cols);
    } else {
        // One row, x, times the transpose of A.
        kernels.multiply({x, A.cols}, {A.data + begin, A.rows}, {y + begin, A.rows},
                         {1, A.cols, end - begin});
    }
}

} // namespace

template <typename T>
void multiply_matrices(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
                       const FloatingMatrix<T>& C) {
    // Without an inner dimension there are still the zeros to write.
    const std::uint64_t work = work_of(C.rows, std::max<std::uint64_t>(A.cols, 1), C.cols);
    if (const auto* kernels = SimdKernels::unfused_kernels<ComputeOf<T>>()) {
        multiply_by_kernels<T>(*kernels, A, B, C, work);
    } else {
        multiply_plainly<T>(A, B, C, work);
    }
}

template <typename T>
void FloatingProducts<T>::matmul(BackendExecutionBindings& bindings) {
    const auto A = input_matrix<T>(bindings, input_role(0));
    const auto B = input_matrix<T>(bindings, input_role(1), {.rows = A.cols, .cols = {}});
    multiply_matrices<T>(A, B, output_matrix<T>(bindings, output_role(0), {A.rows, B.cols}));
}

template <typename T>
void FloatingProducts<T>::matvec(BackendExecutionBindings& bindings) {
    const auto A = input_matrix<T>(bindings, input_role(0));
    const auto x = input_vector<T>(bindings, input_role(1), A.cols);
    const auto y = output_vector<T>(bindings, output_role(0), A.rows);
    const WidenedRows<T> row_of_x({x.data(), 1, x.size(), DataMatrixLayout::row_major});
    const auto* kernels = SimdKernels::unfused_kernels<ComputeOf<T>>();
    for_chunks(A.rows, work_of(A.rows, A.cols), [&](std::uint64_t begin, std::uint64_t end) {
        if (kernels != nullptr) {
            transform_by_kernels(*kernels, A, row_of_x[0], y.data(), begin, end);
        } else {
            transform_plainly(A, row_of_x[0], y.data(), begin, end);
        }
    });
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(                                                              \
        template struct FloatingProducts<Stored>; template void multiply_matrices<Stored>(         \
            const FloatingMatrix<const Stored>&, const FloatingMatrix<const Stored>&,              \
            const FloatingMatrix<Stored>&);)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
