// SPDX-License-Identifier: Apache-2.0
#pragma once

// The walk of floating kernels through a matrix in the order of its memory.

#include "backend/cpu/floating/operands.h"
#include "backend/cpu/steps/cpu_chunks.h"

namespace Tessaline {

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
