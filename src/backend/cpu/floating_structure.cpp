// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_structure.h"

#include "backend/cpu/floating_loops.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// result(i, j) = function(in(j, i)) for a function of stored elements.
template <typename T, typename Function>
void map_transposed(BackendExecutionBindings& bindings, const Function& function) {
    const auto in = input_matrix<T>(bindings, input_role(0));
    const auto result = output_matrix<T>(bindings, output_role(0), {in.cols, in.rows});
    const auto lines = lines_along(result.layout, in.transposed());
    fill_lines(result, work_of(result.rows, result.cols),
               [&](std::uint64_t line, std::uint64_t begin, std::uint64_t end, T* out) {
                   for (std::uint64_t p = begin; p < end; ++p) {
                       *out++ = function(lines(line, p));
                   }
               });
}

/// The Kronecker product. Along a line of the result each element of a line of A meets a whole line
/// of B.
template <typename T>
void fill_kron(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
               const FloatingMatrix<T>& result) {
    const auto a_lines = lines_along(result.layout, A);
    const auto b_lines = lines_along(result.layout, B);
    const std::uint64_t b_line_count = result.is_row_major() ? B.rows : B.cols;
    const std::uint64_t b_length = result.is_row_major() ? B.cols : B.rows;
    fill_lines(result, work_of(result.rows, result.cols),
               [&](std::uint64_t line, std::uint64_t begin, std::uint64_t end, T* out) {
                   if (begin == end) {
                       return;
                   }
                   const std::uint64_t a_line = line / b_line_count;
                   const std::uint64_t b_line = line % b_line_count;
                   std::uint64_t a_position = begin / b_length;
                   std::uint64_t b_position = begin % b_length;
                   for (std::uint64_t p = begin; p < end; ++a_position, b_position = 0) {
                       const auto a = widened(a_lines(a_line, a_position));
                       const std::uint64_t b_end = std::min(b_length, b_position + (end - p));
                       p += b_end - b_position;
                       for (; b_position < b_end; ++b_position) {
                           *out++ = result_as<T>(a * widened(b_lines(b_line, b_position)));
                       }
                   }
               });
}

/// A matrix, its result and the order of the subsystem that is summed over.
template <typename T>
struct PartialTrace {
    explicit PartialTrace(BackendExecutionBindings& bindings)
        : A(input_matrix<T>(bindings, input_role(0))),
          result(output_matrix<T>(bindings, output_role(0))),
          traced(result.rows == 0 ? 0 : A.rows / result.rows) {}

    /// result(i, j) = the sum over increasing t below `traced` of
    /// A(i kept_step + t traced_step, j kept_step + t traced_step).
    void fill(std::uint64_t kept_step, std::uint64_t traced_step) const {
        const auto lines = lines_along(result.layout, A);
        fill_lines(result, work_of(result.rows, result.cols, traced),
                   [&](std::uint64_t line, std::uint64_t begin, std::uint64_t end, T* out) {
                       for (std::uint64_t p = begin; p < end; ++p) {
                           ComputeOf<T> sum{};
                           for (std::uint64_t t = 0; t < traced; ++t) {
                               sum += widened(lines(line * kept_step + t * traced_step,
                                                    p * kept_step + t * traced_step));
                           }
                           *out++ = result_as<T>(sum);
                       }
                   });
    }

    FloatingMatrix<const T> A;
    FloatingMatrix<T> result;
    std::uint64_t traced;
};

} // namespace

template <typename T>
void FloatingStructure<T>::transpose(BackendExecutionBindings& bindings) {
    map_transposed<T>(bindings, [](T x) { return x; });
}

template <typename T>
void FloatingStructure<T>::adjoint(BackendExecutionBindings& bindings) {
    map_transposed<T>(bindings, [](T x) { return conjugated(x); });
}

template <typename T>
void FloatingStructure<T>::kron(BackendExecutionBindings& bindings) {
    const auto A = input_matrix<T>(bindings, input_role(0));
    const auto B = input_matrix<T>(bindings, input_role(1));
    const MatrixExtents extents{checked_element_count(A.rows, B.rows),
                                checked_element_count(A.cols, B.cols)};
    fill_kron<T>(A, B, output_matrix<T>(bindings, output_role(0), extents));
}

template <typename T>
void FloatingStructure<T>::outer(BackendExecutionBindings& bindings) {
    const auto a = input_vector<T>(bindings, input_role(0));
    const auto b = input_vector<T>(bindings, input_role(1));
    const auto result = output_matrix<T>(bindings, output_role(0), {a.size(), b.size()});
    // The Kronecker product of a column and a row.
    fill_kron<T>({a.data(), a.size(), 1, DataMatrixLayout::row_major},
                 {b.data(), 1, b.size(), DataMatrixLayout::row_major}, result);
}

template <typename T>
void FloatingStructure<T>::partial_trace_left(BackendExecutionBindings& bindings) {
    const PartialTrace<T> trace(bindings);
    trace.fill(1, trace.result.rows);
}

template <typename T>
void FloatingStructure<T>::partial_trace_right(BackendExecutionBindings& bindings) {
    const PartialTrace<T> trace(bindings);
    trace.fill(trace.traced, 1);
}

template <typename T>
void FloatingStructure<T>::eye(BackendExecutionBindings& bindings) {
    const auto result = output_matrix<T>(bindings, output_role(0));
    const std::uint64_t count = result.rows * result.cols;
    const std::uint64_t diagonal_step = result.cols + 1;
    for_chunks(count, count, [&](std::uint64_t begin, std::uint64_t end) {
        std::fill(result.data + begin, result.data + end, stored_as<T>(0));
        const std::uint64_t diagonals_before = (begin + diagonal_step - 1) / diagonal_step;
        for (std::uint64_t i = diagonals_before * diagonal_step; i < end; i += diagonal_step) {
            result.data[i] = stored_as<T>(1);
        }
    });
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingStructure<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
