// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_products.h"

#include "backend/cpu/floating_loops.h"
#include "backend/cpu/floating_widened.h"

#include <algorithm>

namespace Tessaline {

namespace {

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

} // namespace

template <typename T>
void multiply_matrices(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
                       const FloatingMatrix<T>& C) {
    const WidenedRows<T> rows_of_b(B);
    // Without an inner dimension there are still the zeros to write.
    const std::uint64_t terms = std::max<std::uint64_t>(A.cols, 1);
    for_chunks(C.rows, work_of(C.rows, terms, C.cols), [&](std::uint64_t begin, std::uint64_t end) {
        for (std::uint64_t i = begin; i < end; ++i) {
            for (std::uint64_t j = 0; j < C.cols; j += columns_in_flight) {
                multiply_row_piece(A, rows_of_b, C, i, j);
            }
        }
    });
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
    for_chunks(A.rows, work_of(A.rows, A.cols), [&](std::uint64_t begin, std::uint64_t end) {
        sum_side_by_side<ComputeOf<T>>(
            begin, end, A.cols,
            [&A, x = row_of_x[0]](std::uint64_t i, std::uint64_t k) {
                return widened(A(i, k)) * x[k];
            },
            [&y](std::uint64_t i, ComputeOf<T> sum) { y[i] = result_as<T>(sum); });
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
