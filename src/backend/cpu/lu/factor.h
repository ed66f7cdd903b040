// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factorisation with partial pivoting in place: right-looking, one column at a time (G. H.
// Golub, C. F. Van Loan, "Matrix Computations", 3.4), or by blocks with the same bits. Only an
// exact zero counts as singular, and growth is not watched; but a multiplier that leaves the range
// is an error, and no factor is made of it.

#include "backend/cpu/lu/blocked_elimination.h"
#include "backend/cpu/lu/factor_matrix.h"
#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/tables/square_transpose.h"
#include "tessaline/storage/checked_size_cast.h"
#include "tessaline/storage/kernel_views.h"

namespace Tessaline::CpuFallback {

/// The row of column k's largest element on or below the diagonal, the upper one of equals.
template <typename Matrix>
std::uint64_t find_pivot_row(Matrix a, std::uint64_t k) {
    auto best = pivot_magnitude(a(k, k));
    std::uint64_t best_row = k;
    for (std::uint64_t row = k + 1; row < a.order; ++row) {
        const auto candidate = pivot_magnitude(a(row, k));
        if (candidate.exceeds(best)) {
            best = candidate;
            best_row = row;
        }
    }
    if (best.value == 0) {
        LuFailures::singular(k);
    }
    return best_row;
}

template <typename Matrix>
void swap_rows(Matrix a, std::uint64_t first, std::uint64_t second) {
    for (std::uint64_t column = 0; column < a.order; ++column) {
        std::swap(a(first, column), a(second, column));
    }
}

/// Divides column k below the diagonal by the pivot. Stops at the first row whose multiplier
/// vanishes, which keeps its element, and returns it; the order when there is none.
template <typename Matrix>
std::uint64_t store_multipliers(Matrix a, std::uint64_t k) {
    const auto pivot = a(k, k);
    const PivotDivisor divisor(pivot);
    for (std::uint64_t row = k + 1; row < a.order; ++row) {
        const auto multiplier = divisor.multiplier(a(row, k));
        if (QuotientRange::vanished(a(row, k), pivot, multiplier)) {
            return row;
        }
        a(row, k) = multiplier;
    }
    return a.order;
}

/// Subtracts multiples of row k from the rows below it up to `end`, right of column k. Each element
/// takes one product, so the loops run along the memory.
template <typename Matrix>
void subtract_multiples(Matrix a, std::uint64_t k, std::uint64_t end) {
    if constexpr (Matrix::rows_are_contiguous) {
        for (std::uint64_t row = k + 1; row < end; ++row) {
            const auto multiplier = a(row, k);
            for (std::uint64_t column = k + 1; column < a.order; ++column) {
                a(row, column) -= multiplier * a(k, column);
            }
        }
    } else {
        for (std::uint64_t column = k + 1; column < a.order; ++column) {
            const auto pivot_row_element = a(k, column);
            for (std::uint64_t row = k + 1; row < end; ++row) {
                a(row, column) -= a(row, k) * pivot_row_element;
            }
        }
    }
}

/// Plain elimination, as the loops of this file have it. For what it does see lu_factor().
template <typename P, typename T>
void plain_lu_factor(LuDecompView<P, T> lu, DataMatrixLayout layout) {
    *lu.swap_count = 0;
    visit_factor_matrix(lu.factors, lu.size, layout, [&](auto a) {
        for (std::uint64_t k = 0; k < a.order; ++k) {
            stop_point();
            const std::uint64_t pivot_row = find_pivot_row(a, k);
            lu.pivots[k] = checked_size_cast<P>(pivot_row + 1);
            if (pivot_row != k) {
                swap_rows(a, k, pivot_row);
                ++*lu.swap_count;
            }
            const std::uint64_t end = store_multipliers(a, k);
            subtract_multiples(a, k, end);
            if (end != a.order) {
                LuFailures::multiplier_underflow();
            }
        }
    });
}

/// Elimination by blocks, with the bits of plain_lu_factor(), for factors whose rows P can number.
template <typename P, typename T>
void blocked_lu_factor(
    LuDecompView<P, T> lu, DataMatrixLayout layout,
    const SimdKernels::EliminationKernels<T>& kernels = SimdKernels::elimination_kernels<T>()) {
    const auto turn = [&] {
        if (layout == DataMatrixLayout::row_major) {
            transpose_in_place(lu.factors, lu.size);
        }
    };
    BlockedElimination<T, P> elimination(kernels, lu.factors, lu.size, lu.pivots);
    turn();
    const auto progress = elimination.factor();
    turn();
    *lu.swap_count = elimination.swaps();
    switch (progress.end) {
    case SimdKernels::EliminationEnd::complete:
        return;
    case SimdKernels::EliminationEnd::singular:
        LuFailures::singular(progress.steps);
    case SimdKernels::EliminationEnd::non_finite:
        LuFailures::non_finite_pivot();
    case SimdKernels::EliminationEnd::vanished_multiplier:
        LuFailures::multiplier_underflow();
    }
}

/// Factors the matrix in `lu.factors` into P A = L U, in place: L below the diagonal with an
/// implied diagonal of ones, U on and above it. `pivots[k]` is the row, counted from 1, that was
/// swapped with row k, and `swap_count` the number of rows so moved. T is real or complex.
///
/// Raises SolverError for a column without a non-zero pivot (reason singular) and for a multiplier
/// that underflows (reason solver_failure), std::invalid_argument for a candidate that is not
/// finite, std::overflow_error for a row that P cannot number. The factors are then partly
/// eliminated: the steps before the failing one are complete.
template <typename P, typename T>
void lu_factor(LuDecompView<P, T> lu, DataMatrixLayout layout) {
    if (lu.size >= smallest_blocked_order && std::in_range<P>(lu.size)) {
        blocked_lu_factor(lu, layout);
        return;
    }
    plain_lu_factor(lu, layout);
}

} // namespace Tessaline::CpuFallback
