// SPDX-License-Identifier: Apache-2.0
#pragma once

// Solution of one system from its LU factors, by forward and backward substitution.

#include "backend/cpu/blocked_elimination.h"
#include "backend/cpu/factor_matrix.h"
#include "backend/cpu/floating_complex_division.h"
#include "backend/cpu/lu_failures.h"
#include "tessaline/storage/element_traits.h"
#include "tessaline/storage/kernel_views.h"

#include <algorithm>
#include <utility>

namespace Tessaline::CpuFallback {

/// Applies the row swaps of a factorisation in their order. Raises std::invalid_argument for a
/// pivot that numbers no row.
template <typename P, typename T>
void apply_pivots(const P* pivots, T* b, std::uint64_t order) {
    for (std::uint64_t i = 0; i < order; ++i) {
        if (!std::cmp_greater_equal(pivots[i], 1) || !std::cmp_less_equal(pivots[i], order)) {
            LuFailures::invalid_pivot();
        }
        std::swap(b[i], b[static_cast<std::uint64_t>(pivots[i]) - 1]);
    }
}

/// b = L^-1 b with a diagonal of ones. Each element takes its terms in increasing column, whether
/// the loops run by rows or by columns.
template <typename Matrix, typename T>
void plain_substitute_forward(Matrix factors, T* b) {
    if constexpr (Matrix::rows_are_contiguous) {
        for (std::uint64_t row = 1; row < factors.order; ++row) {
            T value = b[row];
            for (std::uint64_t column = 0; column < row; ++column) {
                value -= factors(row, column) * b[column];
            }
            b[row] = value;
        }
    } else {
        for (std::uint64_t column = 0; column < factors.order; ++column) {
            const T value = b[column];
            for (std::uint64_t row = column + 1; row < factors.order; ++row) {
                b[row] -= factors(row, column) * value;
            }
        }
    }
}

/// The same by blocks, where that is faster.
template <typename Matrix, typename T>
void substitute_forward(Matrix factors, T* b, const EliminationParts<T>& parts = {}) {
    if (Matrix::rows_are_contiguous || !parts) {
        plain_substitute_forward(factors, b);
    } else {
        parts.kernels->substitute_forward(factors.data, factors.order, b, factors.order);
    }
}

/// Divides `value`, an element of the right-hand side with all terms subtracted, by the diagonal.
template <typename T>
T solved_element(T value, T diagonal, std::uint64_t row) {
    if (diagonal == T(0)) {
        LuFailures::singular(row);
    }
    if constexpr (is_complex_element<T>) {
        return careful_quotient(value, diagonal);
    } else {
        return value / diagonal;
    }
}

/// b = U^-1 b. An element takes its terms in increasing column, so that the last solved element is
/// the first one subtracted and columns cannot be applied one by one.
template <typename Matrix, typename T>
void plain_substitute_backward(Matrix factors, T* b, std::uint64_t end) {
    for (std::uint64_t row = end; row-- > 0;) {
        T value = b[row];
        for (std::uint64_t column = row + 1; column < factors.order; ++column) {
            value -= factors(row, column) * b[column];
        }
        b[row] = solved_element(value, factors(row, row), row);
    }
}

/// Backward substitution by blocks of rows of a column-major matrix. All subtractions are one
/// chain. The products are made in vectors and stored in the order of the chain, those of the next
/// block between the links of the chain of this one, which leave the processor much time.
template <typename T>
class BackwardSubstitution {
    using Index = std::uint64_t;
    static constexpr Index block = SimdKernels::elimination_block;
    static constexpr Index most_columns = 1024;
    static constexpr Index links = 64; ///< of the chain, while `block` columns are multiplied

  public:
    BackwardSubstitution(const SimdKernels::EliminationKernels<T>& kernels, const T* factors,
                         Index order, T* b)
        : kernels_(kernels),
          factors_(factors),
          order_(order),
          b_(b) {}

    /// Solves rows from the last one up, and returns how many at the top it leaves to others: those
    /// of an incomplete block and those with too many columns for its buffers.
    Index solve() {
        Index end = order_;
        for (; end >= block && order_ - end <= most_columns - block; end -= block) {
            // What this block solves for, the next one has to multiply first.
            next_column_ = end;
            for (Index row = end; row-- > end - block;) {
                solve_row(row, end);
            }
            if (end >= 2 * block) {
                multiply_next(end, order_);
                next_column_ = end - block;
                multiply_next(end, end);
            }
            std::swap(products_, next_products_);
        }
        return end;
    }

  private:
    void solve_row(Index row, Index end) {
        T value = b_[row];
        for (Index column = row + 1; column < end; ++column) {
            value -= factors_[column * order_ + row] * b_[column];
        }
        const T* const products = products_ + (row + block - end) * most_columns;
        const Index columns = order_ - end;
        for (Index column = 0; column < columns; column += links) {
            for (Index link = column; link < std::min(columns, column + links); ++link) {
                value -= products[link];
            }
            if (end >= 2 * block) {
                multiply_next(end, std::min(next_column_ + block, order_));
            }
        }
        b_[row] = solved_element(value, factors_[row * order_ + row], row);
    }

    /// Multiplies the columns of the block above row end - `block` up to `end_column`.
    void multiply_next(Index end, Index end_column) {
        kernels_.multiply_rows(factors_ + next_column_ * order_ + end - 2 * block, order_,
                               b_ + next_column_, end_column - next_column_,
                               next_products_ + (next_column_ - (end - block)), most_columns);
        next_column_ = end_column;
    }

    const SimdKernels::EliminationKernels<T>& kernels_;
    const T* factors_;
    Index order_;
    T* b_;
    Index next_column_ = 0;
    alignas(64) T buffers_[2][block * most_columns];
    T* products_ = buffers_[0];
    T* next_products_ = buffers_[1];
};

/// The same, by blocks where that is faster.
template <typename Matrix, typename T>
void substitute_backward(Matrix factors, T* b, const EliminationParts<T>& parts = {}) {
    std::uint64_t end = factors.order;
    if constexpr (!Matrix::rows_are_contiguous && !is_complex_element<T>) {
        if (parts) {
            end = BackwardSubstitution<T>(*parts.kernels, factors.data, factors.order, b).solve();
        }
    }
    plain_substitute_backward(factors, b, end);
}

/// Solves A x = b from the factors of A, x in the place of b, which has `lu.size` elements.
///
/// Raises std::invalid_argument for an invalid pivot and SolverError (reason singular) for a zero
/// on the diagonal of U; b is then partly overwritten.
template <typename P, typename T>
void solve(LuDecompView<const P, const T> lu, DataMatrixLayout layout, T* b) {
    apply_pivots(lu.pivots, b, lu.size);
    visit_factor_matrix(lu.factors, lu.size, layout, [&](auto factors) {
        substitute_forward(factors, b);
        substitute_backward(factors, b);
    });
}

} // namespace Tessaline::CpuFallback
