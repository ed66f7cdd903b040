// SPDX-License-Identifier: Apache-2.0
#pragma once

// Systems with a unit lower triangle, solved by halves so that most of the work is products.

#include "backend/cpu/simd/tables/elimination_kernels.h"

#include <bit>

namespace Tessaline::CpuFallback {

/// The lower part of a column-major matrix, with a diagonal of ones implied. Each element of a
/// result takes the operations of plain substitution in their order.
template <typename T>
class UnitTriangle {
    using Index = SimdKernels::Index;
    static constexpr Index block = elimination_block;

  public:
    UnitTriangle(const SimdKernels::TriangleKernels<T>& kernels, const T* matrix, Index stride)
        : kernels_(kernels),
          matrix_(matrix),
          stride_(stride) {}

    /// B = L^-1 B for the `order` rows of L from `first` on. B is column-major and starts with row
    /// 0 of L.
    void solve(Index first, Index order, T* B, Index b_stride, Index columns) const {
        if (order <= block) {
            solve_block(first, order, B, b_stride, columns);
            return;
        }
        const Index upper = std::bit_floor(order - 1);
        solve(first, upper, B, b_stride, columns);
        subtract_product(first + upper, order - upper, first, upper, B, b_stride, columns);
        solve(first + upper, order - upper, B, b_stride, columns);
    }

    /// Subtracts from rows of B the products of L's elements in some columns with the rows of B
    /// that these columns belong to.
    void subtract_product(Index row, Index rows, Index column, Index inner, T* B, Index b_stride,
                          Index columns) const {
        // As rows: the transposes of all three, which commutes the factors.
        kernels_.subtract_product({B + column, b_stride}, {at(row, column), stride_},
                                  {B + row, b_stride}, {columns, inner, rows});
    }

    /// Subtracts multiples of row k of B from its rows below, up to `end`.
    void subtract_multiples(Index k, Index end, T* B, Index b_stride, Index columns) const {
        subtract_product(k + 1, end - k - 1, k, 1, B, b_stride, columns);
    }

  private:
    const T* at(Index row, Index column) const { return matrix_ + column * stride_ + row; }

    void solve_block(Index first, Index order, T* B, Index b_stride, Index columns) const {
        if (order == block) {
            kernels_.solve_triangle(at(first, first), stride_, B + first, b_stride, columns);
            return;
        }
        for (Index k = first; k + 1 < first + order; ++k) {
            subtract_multiples(k, first + order, B, b_stride, columns);
        }
    }

    const SimdKernels::TriangleKernels<T>& kernels_;
    const T* matrix_;
    Index stride_;
};

} // namespace Tessaline::CpuFallback
