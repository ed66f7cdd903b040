// SPDX-License-Identifier: Apache-2.0
#pragma once

// Inputs that a kernel reads many times, in the form that its inner loop streams.

#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/operands.h"

namespace Tessaline {

/// Copies the rows [begin, end) of a matrix to `to`, in compute type and one after the other.
template <typename T>
void widen_rows(const FloatingMatrix<const T>& matrix, std::uint64_t begin, std::uint64_t end,
                ComputeOf<T>* to, const SimdKernels::UnfusedTable& kernels) {
    if (matrix.is_row_major()) {
        widen_elements(matrix.data + begin * matrix.cols, to, (end - begin) * matrix.cols, kernels);
        return;
    }
    for (std::uint64_t first = 0; first < matrix.cols; first += widened_columns) {
        const std::uint64_t last = std::min(matrix.cols, first + widened_columns);
        for (std::uint64_t i = begin; i < end; ++i) {
            for (std::uint64_t j = first; j < last; ++j) {
                to[(i - begin) * matrix.cols + j] = widened(matrix(i, j));
            }
        }
    }
}

/// Rows of a matrix, contiguous and in compute type: the operand's own memory where it has that
/// form, else a copy. Valid while the operand lives.
template <typename T>
class WidenedRows {
  public:
    using Compute = ComputeOf<T>;

    WidenedRows(const FloatingMatrix<const T>& matrix, const SimdKernels::UnfusedTable& kernels)
        : WidenedRows(matrix, 0, matrix.rows, kernels) {}
    /// The rows [begin, end) only, counted from `begin`.
    WidenedRows(const FloatingMatrix<const T>& matrix, std::uint64_t begin, std::uint64_t end,
                const SimdKernels::UnfusedTable& kernels)
        : cols_(matrix.cols),
          copy_(serves_itself(matrix) ? 0 : (end - begin) * matrix.cols),
          data_(copy_.data()) {
        if constexpr (std::is_same_v<T, Compute>) {
            if (serves_itself(matrix)) {
                data_ = matrix.data + begin * cols_;
                return;
            }
        }
        widen_rows(matrix, begin, end, copy_.data(), kernels);
    }

    const Compute* operator[](std::uint64_t row) const { return data_ + row * cols_; }

  private:
    static bool serves_itself(const FloatingMatrix<const T>& matrix) {
        return std::is_same_v<T, Compute> && matrix.is_row_major();
    }

    std::uint64_t cols_;
    Scratch<Compute> copy_; ///< empty where the operand itself serves
    const Compute* data_;
};

/// Sums of `length` terms each, for every index in [begin, end): `store(index, sum)` gets the sum
/// of `term(index, k)` over increasing k, from zero. Each sum is a chain of dependent additions, so
/// several are formed side by side.
template <typename Value, typename Term, typename Store>
void sum_side_by_side(std::uint64_t begin, std::uint64_t end, std::uint64_t length,
                      const Term& term, const Store& store) {
    const auto sum_block = [&]<std::uint64_t Count>(std::integral_constant<std::uint64_t, Count>) {
        Value sums[Count]{};
        for (std::uint64_t k = 0; k < length; ++k) {
            for (std::uint64_t r = 0; r < Count; ++r) {
                sums[r] += term(begin + r, k);
            }
        }
        for (std::uint64_t r = 0; r < Count; ++r) {
            store(begin + r, sums[r]);
        }
        begin += Count;
    };
    constexpr std::integral_constant<std::uint64_t, 8> block;
    while (end - begin >= block) {
        sum_block(block);
    }
    while (begin < end) {
        sum_block(std::integral_constant<std::uint64_t, 1>{});
    }
}

} // namespace Tessaline
