// SPDX-License-Identifier: Apache-2.0
#pragma once

// Inputs that a kernel reads many times, in the form that its inner loop streams.

#include "backend/cpu/floating_operands.h"

#include <vector>

namespace Tessaline {

/// The rows of a matrix, contiguous and in compute type: the operand's own memory where it has that
/// form, else a copy. Valid while the operand lives.
template <typename T>
class WidenedRows {
  public:
    using Compute = ComputeOf<T>;

    explicit WidenedRows(const FloatingMatrix<const T>& matrix) : cols_(matrix.cols) {
        if constexpr (std::is_same_v<T, Compute>) {
            if (matrix.is_row_major()) {
                data_ = matrix.data;
                return;
            }
        }
        copy_.reserve(matrix.rows * matrix.cols);
        for (std::uint64_t i = 0; i < matrix.rows; ++i) {
            for (std::uint64_t j = 0; j < matrix.cols; ++j) {
                copy_.push_back(widened(matrix(i, j)));
            }
        }
        data_ = copy_.data();
    }
    WidenedRows(const WidenedRows&) = delete;
    WidenedRows& operator=(const WidenedRows&) = delete;

    const Compute* operator[](std::uint64_t row) const { return data_ + row * cols_; }

  private:
    std::uint64_t cols_;
    std::vector<Compute> copy_; ///< empty where the operand itself serves
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
