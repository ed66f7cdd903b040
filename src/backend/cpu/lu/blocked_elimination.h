// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factorisation by recursion on halves of the columns (S. Toledo, "Locality of Reference in LU
// Decomposition with Partial Pivoting", SIAM J. Matrix Anal. Appl. 18, 1997): all but a few
// operations are then products of large blocks. Each element takes the operations of plain
// elimination in their order, so that it gets the same bits.

#include "backend/cpu/lu/complex_panel.h"
#include "backend/cpu/lu/unit_triangle.h"
#include "backend/cpu/runtime/stop_point.h"

#include <bit>
#include <utility>

namespace Tessaline::CpuFallback {

/// Factors a column-major matrix in place, with partial pivoting. Where an elimination ends early,
/// what is left is what plain elimination leaves: the complete steps are made in the whole matrix,
/// and after a vanished multiplier the step at hand in the rows above it. The rules are those of
/// complex elements.
template <typename T, typename P, typename Rules = FactorRules>
class BlockedElimination {
    using Kernels = typename Rules::template Kernels<T>;
    using Index = SimdKernels::Index;
    using Progress = SimdKernels::EliminationProgress;
    using End = SimdKernels::EliminationEnd;
    static constexpr Index block = elimination_block;

  public:
    /// Element k of `pivots` becomes the row, counted from 1, that was swapped with row k. P can
    /// number all rows.
    BlockedElimination(const Kernels& kernels, T* matrix, Index order, P* pivots)
        : kernels_(kernels),
          multipliers_(kernels, matrix, order),
          matrix_(matrix),
          n_(order),
          pivots_(pivots) {}

    Progress factor() {
        if (n_ != 0) {
            factor_columns(0, n_);
        }
        return progress_;
    }

    /// How many rows were swapped with another.
    Index swaps() const {
        Index count = 0;
        for (Index k = 0; k < swapped(); ++k) {
            count += std::cmp_equal(pivots_[k], k + 1) ? 0U : 1U;
        }
        return count;
    }

  private:
    /// Steps whose rows were swapped.
    Index swapped() const {
        return progress_.steps + (progress_.end == End::vanished_multiplier ? 1 : 0);
    }

    T* at(Index row, Index column) const { return matrix_ + column * n_ + row; }

    void factor_columns(Index first, Index count) {
        if (count <= block) {
            stop_point();
            factor_panel(first, count);
            return;
        }
        const Index middle = first + std::bit_floor(count - 1);
        const Index end = first + count;
        factor_columns(first, middle - first);
        swap_rows(first, middle, end);
        // A12 = L11^-1 A12, A22 = A22 - A21 A12.
        const Index steps = progress_.steps - first;
        multipliers_.solve(first, steps, at(0, middle), n_, end - middle);
        multipliers_.subtract_product(first + steps, n_ - first - steps, first, steps,
                                      at(0, middle), n_, end - middle);
        if (progress_.end == End::complete) {
            factor_columns(middle, end - middle);
            swap_rows(middle, first, middle);
        } else if (progress_.end == End::vanished_multiplier) {
            multipliers_.subtract_multiples(progress_.steps, progress_.vanished_row, at(0, middle),
                                            n_, end - middle);
        }
    }

    void factor_panel(Index first, Index count) {
        Index rows[block];
        T* const panel = at(first, first);
        if constexpr (is_complex_element<T>) {
            progress_ = ComplexPanel<T, Rules>(kernels_, panel, n_, n_ - first, count).factor(rows);
        } else {
            progress_ = kernels_.factor_panel(panel, n_, n_ - first, count, rows);
        }
        progress_.steps += first;
        progress_.vanished_row += first;
        for (Index k = first; k < swapped(); ++k) {
            pivots_[k] = static_cast<P>(first + rows[k - first] + 1);
        }
    }

    /// Makes the swaps of the steps from `first` on in some columns.
    void swap_rows(Index first, Index begin, Index end) const {
        Index column = begin;
        for (; column + swapped_together <= end; column += swapped_together) {
            swap_rows_of<swapped_together>(first, at(0, column));
        }
        for (; column < end; ++column) {
            swap_rows_of<1>(first, at(0, column));
        }
    }

    /// Columns whose rows are swapped together, as reading the pivots takes time too.
    static constexpr Index swapped_together = 4;

    template <Index Columns>
    void swap_rows_of(Index first, T* columns) const {
        for (Index k = first, end = swapped(); k < end; ++k) {
            T* const row = columns + k;
            T* const other = columns + static_cast<Index>(pivots_[k]) - 1;
            for (Index column = 0; column < Columns; ++column) {
                std::swap(row[column * n_], other[column * n_]);
            }
        }
    }

    const Kernels& kernels_;
    UnitTriangle<T> multipliers_; ///< L, as far as it is made
    T* matrix_;
    Index n_;
    P* pivots_;
    Progress progress_;
};

} // namespace Tessaline::CpuFallback
