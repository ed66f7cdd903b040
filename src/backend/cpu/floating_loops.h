// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parallel loop of floating kernels, and the walk through a matrix in the order of its memory.

#include "backend/cpu/floating_operands.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <limits>

namespace Tessaline {

/// The product of the factors, or the largest number where that is exceeded: an estimate of work.
template <typename... Factors>
std::uint64_t work_of(Factors... factors) {
    std::uint64_t work = 1;
    const bool fits = (!__builtin_mul_overflow(work, std::uint64_t{factors}, &work) && ...);
    return fits ? work : std::numeric_limits<std::uint64_t>::max();
}

/// Calls `body(begin, end)` on ranges that cover [0, count) once: on workers where the thread's
/// current CPU context has a runtime that finds `work` worth it, else once on this thread. A body
/// writes nothing that another range's body touches.
template <typename Body>
void for_chunks(std::uint64_t count, std::uint64_t work, const Body& body) {
    const CpuExecutionContext* context = CpuExecutionContextDetail::current;
    if (context == nullptr || context->runtime() == nullptr) {
        body(std::uint64_t{0}, count);
    } else {
        context->runtime()->parallel_for_chunks(0, count, work, body);
    }
}

/// A matrix seen as lines that are contiguous in some result: rows where that is row major, columns
/// where it is column major. T is const for an input.
template <typename T>
struct MatrixLines {
    T* data;
    std::uint64_t line_stride;
    std::uint64_t stride; ///< within a line

    T& operator()(std::uint64_t line, std::uint64_t position) const {
        return data[line * line_stride + position * stride];
    }
};

/// The lines of `matrix` along those of a result in `layout`.
template <typename T>
MatrixLines<T> lines_along(DataMatrixLayout layout, const FloatingMatrix<T>& matrix) {
    return layout == DataMatrixLayout::row_major
               ? MatrixLines<T>{matrix.data, matrix.row_stride(), matrix.col_stride()}
               : MatrixLines<T>{matrix.data, matrix.col_stride(), matrix.row_stride()};
}

/// Fills a result: its rows are cut into chunks, and within a chunk `fill(line, begin, end, out)`
/// writes the positions [begin, end) of a line to `out`, contiguously.
template <typename T, typename Fill>
void fill_lines(const FloatingMatrix<T>& result, std::uint64_t work, const Fill& fill) {
    for_chunks(result.rows, work, [&](std::uint64_t begin, std::uint64_t end) {
        if (result.is_row_major()) {
            for (std::uint64_t i = begin; i < end; ++i) {
                fill(i, std::uint64_t{0}, result.cols, result.data + i * result.cols);
            }
        } else {
            for (std::uint64_t j = 0; j < result.cols; ++j) {
                fill(j, begin, end, result.data + j * result.rows + begin);
            }
        }
    });
}

} // namespace Tessaline
