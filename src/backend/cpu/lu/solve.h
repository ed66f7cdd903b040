// SPDX-License-Identifier: Apache-2.0
#pragma once

// Solution of one system from its LU factors, by forward and backward substitution.

#include "backend/cpu/lu/factor_matrix.h"
#include "backend/cpu/numbers/complex_division.h"
#include "backend/cpu/simd/plain/lu_failures.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"
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

/// b = L^-1 b with a diagonal of ones. Each element takes its terms in increasing column.
template <typename F, typename T>
void substitute_forward(RowMajorFactors<F> factors, T* b) {
    for (std::uint64_t row = 1; row < factors.order; ++row) {
        T value = b[row];
        for (std::uint64_t column = 0; column < row; ++column) {
            value -= factors(row, column) * b[column];
        }
        b[row] = value;
    }
}
template <typename F, typename T>
void substitute_forward(
    ColumnMajorFactors<F> factors, T* b,
    const SimdKernels::TriangleKernels<T>& kernels = SimdKernels::elimination_kernels<T>()) {
    kernels.substitute_forward(factors.data, factors.order, b, factors.order);
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
template <typename F, typename T>
void substitute_backward(RowMajorFactors<F> factors, T* b) {
    for (std::uint64_t row = factors.order; row-- > 0;) {
        T value = b[row];
        for (std::uint64_t column = row + 1; column < factors.order; ++column) {
            value -= factors(row, column) * b[column];
        }
        b[row] = solved_element(value, T(factors(row, row)), row);
    }
}
template <typename F, typename T>
void substitute_backward(
    ColumnMajorFactors<F> factors, T* b,
    const SimdKernels::TriangleKernels<T>& kernels = SimdKernels::elimination_kernels<T>()) {
    using Value = SimdKernels::BuiltInValue<T>;
    kernels.substitute_backward({factors.data, factors.order, factors.order}, b,
                                [](Value value, Value diagonal, std::uint64_t row) {
                                    const T quotient = solved_element(T(value), T(diagonal), row);
                                    if constexpr (is_complex_element<T>) {
                                        return quotient.__rep();
                                    } else {
                                        return quotient;
                                    }
                                });
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
