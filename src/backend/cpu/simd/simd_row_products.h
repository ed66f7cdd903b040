// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products of matrix rows with a vector, summed in the order of the elements.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

/// As many rows as a vector has lanes share a tile: the products of a row with the vector lie side
/// by side, a transpose puts them one below the other, and one addition a column then serves all
/// rows, each in its own order.
template <typename Set>
class RowProducts {
    using Register = typename Set::Register;

  public:
    static void row_products(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin,
                             Index end) {
        for_tiles(A, x, out, begin, end,
                  [](Complex<Set> row, Complex<Set> factor) { return product<Set>(row, factor); });
    }

    static void conjugate_row_products(SplitMatrixInput A, SplitInput x, SplitOutput out,
                                       Index begin, Index end) {
        for_tiles(A, x, out, begin, end, [](Complex<Set> row, Complex<Set> factor) {
            return conjugate_product<Set>(factor, row);
        });
    }

  private:
    template <typename Product>
    static void for_tiles(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin, Index end,
                          const Product& times) {
        for_vectors<Set>(end - begin, [&](std::size_t offset, auto lanes) {
            const Index row = begin + offset;
            const std::size_t rows = count_of(lanes, end - row);
            Complex<Set> sum{Set::zero(), Set::zero()};
            for_vectors<Set>(A.cols, [&](std::size_t k, auto columns) {
                const auto factor = load_complex<Set>(x, k, columns);
                Register real[Set::lanes];
                Register imag[Set::lanes];
                for (std::size_t i = 0; i < Set::lanes; ++i) {
                    // Rows beyond the last give no element; any product will do.
                    const Index start = (row + (i < rows ? i : 0)) * A.cols;
                    const SplitInput line{A.real + start, A.imag + start, A.cols};
                    const auto terms = times(load_complex<Set>(line, k, columns), factor);
                    real[i] = terms.real;
                    imag[i] = terms.imag;
                }
                const std::size_t count = count_of(columns, A.cols - k);
                sum = {sum_columns(sum.real, real, count), sum_columns(sum.imag, imag, count)};
            });
            store_complex<Set>(out, row, sum, lanes);
        });
    }

    static Register sum_columns(Register sum, Register (&terms)[Set::lanes], std::size_t count) {
        Set::transpose(terms);
        for (std::size_t i = 0; i < count; ++i) {
            sum = sum + terms[i];
        }
        return sum;
    }

    static constexpr std::size_t count_of(AllLanes, std::size_t) { return Set::lanes; }
    static std::size_t count_of(typename Set::Mask, std::size_t rest) { return rest; }
};

} // namespace Tessaline::SimdKernels
