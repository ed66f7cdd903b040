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
#include <cmath>
#include <cstring>
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

/// Element `row` of the right-hand side less its terms for the solved elements of x below it.
template <typename Matrix, typename T>
T without_solved(Matrix factors, const T* x, std::uint64_t row) {
    T value = x[row];
    for (std::uint64_t column = row + 1; column < factors.order; ++column) {
        value -= factors(row, column) * x[column];
    }
    return value;
}

/// b = U^-1 b. An element takes its terms in increasing column, so that the last solved element is
/// the first one subtracted and columns cannot be applied one by one.
template <typename Matrix, typename T>
void plain_substitute_backward(Matrix factors, T* b, std::uint64_t end) {
    for (std::uint64_t row = end; row-- > 0;) {
        b[row] = solved_element(without_solved(factors, b, row), factors(row, row), row);
    }
}

/// Rows that backward substitution solves at once.
inline constexpr std::uint64_t backward_rows = SimdKernels::elimination_block;

/// Makes the products of the elements of `backward_rows` rows of a column-major matrix with those
/// of x, stored by rows.
template <typename T>
using MultiplyRows = void (*)(const T* rows, std::uint64_t stride, const T* x,
                              std::uint64_t columns, T* products, std::uint64_t products_stride);

/// That for complex elements, but that no product recovers infinities. What waits for the products
/// takes so long that wider vectors would be in vain.
template <typename T>
void multiply_complex_rows(const T* rows, std::uint64_t stride, const T* x, std::uint64_t columns,
                           T* products, std::uint64_t products_stride) {
    typedef Component<T> Parts __attribute__((vector_size(sizeof(T)))); // of one element
    constexpr std::uint64_t columns_ahead = 8;
    for (std::uint64_t j = 0; j < columns; ++j) {
        const T* const column = rows + j * stride;
        __builtin_prefetch(column + columns_ahead * stride);
        __builtin_prefetch(column + columns_ahead * stride + backward_rows - 1);
        const Parts factor{x[j].real(), x[j].imag()};
        const Parts turned{-x[j].imag(), x[j].real()}; // times i
        for (std::uint64_t k = 0; k < backward_rows; ++k) {
            const Parts product = column[k].real() * factor + column[k].imag() * turned;
            void* const to = products + k * products_stride + j;
            std::memcpy(to, &product, sizeof product);
        }
    }
}

/// Subtracts a term of a chain.
template <typename T>
[[gnu::always_inline]] inline void subtract_term(T& value, const T& term) {
    if constexpr (is_complex_element<T>) {
        auto real = value.real() - term.real();
        auto imag = value.imag() - term.imag();
        // Says that they are in registers: the compiler would keep them in memory, where a link of
        // the chain takes several times as long.
        asm("" : "+x"(real), "+x"(imag));
        value = {real, imag};
    } else {
        value -= term;
    }
}

/// `value` less the terms, one after the other.
template <typename T>
T without_terms(T value, const T* terms, std::uint64_t count) {
    constexpr std::uint64_t at_once = 8;
    for (; count >= at_once; count -= at_once, terms += at_once) {
        for (std::uint64_t i = 0; i < at_once; ++i) {
            subtract_term(value, terms[i]);
        }
    }
    for (std::uint64_t i = 0; i < count; ++i) {
        subtract_term(value, terms[i]);
    }
    return value;
}

/// Backward substitution by blocks of rows of a column-major matrix. All subtractions are one
/// chain. The products are made in vectors and stored in the order of the chain, those of the next
/// block between the links of the chain of this one, which leave the processor much time.
template <typename T>
class BackwardSubstitution {
    using Index = std::uint64_t;
    using Matrix = FactorMatrix<const T, DataMatrixLayout::column_major>;
    static constexpr Index block = backward_rows;
    static constexpr Index most_columns = 1024;
    /// Columns that are multiplied between as many links of the chain as these make products. The
    /// kernel for real elements wants a block of them; else a few, so that the processor has both
    /// the products and the links before it at any time.
    static constexpr Index columns_at_once = is_complex_element<T> ? 4 : block;
    static constexpr Index links = columns_at_once * block;

  public:
    BackwardSubstitution(MultiplyRows<T> multiply_rows, Matrix factors, T* b)
        : multiply_rows_(multiply_rows),
          factors_(factors),
          b_(b) {}

    /// Solves rows from the last one up, and returns how many at the top it leaves to others: those
    /// of an incomplete block and those with too many columns for its buffers.
    Index solve() {
        const Index order = factors_.order;
        Index end = order;
        for (; end >= block && order - end <= most_columns - block; end -= block) {
            // What this block solves for, the next one has to multiply first.
            next_column_ = end;
            for (Index row = end; row-- > end - block;) {
                solve_row(row, end);
            }
            if (end >= 2 * block) {
                multiply_next(end, order);
                next_column_ = end - block;
                multiply_next(end, end);
            }
            std::swap(products_, next_products_);
        }
        return end;
    }

  private:
    /// A line of memory beyond the columns, lest all rows meet in one set of the first cache.
    static constexpr Index products_stride = most_columns + 64 / sizeof(T);

    void solve_row(Index row, Index end) {
        T value = b_[row];
        for (Index column = row + 1; column < end; ++column) {
            subtract_term(value, factors_(row, column) * b_[column]);
        }
        const T* const products = products_ + (row + block - end) * products_stride;
        const Index columns = factors_.order - end;
        for (Index column = 0; column < columns; column += links) {
            value = without_terms(value, products + column, std::min(links, columns - column));
            if (end >= 2 * block) {
                multiply_next(end, std::min(next_column_ + columns_at_once, factors_.order));
            }
        }
        if (is_lost(value)) {
            value = without_solved(factors_, b_, row);
        }
        b_[row] = solved_element(value, factors_(row, row), row);
    }

    /// Whether the value may have had a product that recovers infinities: its parts were both NaN,
    /// which stays in the sum.
    static bool is_lost(T value) {
        if constexpr (is_complex_element<T>) {
            return std::isnan(value.real()) && std::isnan(value.imag());
        } else {
            return false;
        }
    }

    /// Multiplies the columns of the block above row end - `block` up to `end_column`.
    void multiply_next(Index end, Index end_column) {
        multiply_rows_(&factors_(end - 2 * block, next_column_), factors_.order, b_ + next_column_,
                       end_column - next_column_, next_products_ + (next_column_ - (end - block)),
                       products_stride);
        next_column_ = end_column;
    }

    MultiplyRows<T> multiply_rows_;
    Matrix factors_;
    T* b_;
    Index next_column_ = 0;
    static constexpr Index buffer_size = block * products_stride;
    /// Not of T, whose constructor would clear it all.
    alignas(64) Component<T> buffers_[2 * buffer_size * sizeof(T) / sizeof(Component<T>)];
    T* products_ = reinterpret_cast<T*>(buffers_);
    T* next_products_ = products_ + buffer_size;
};

/// The same, by blocks where that is faster.
template <typename Matrix, typename T>
void substitute_backward(Matrix factors, T* b, const EliminationParts<T>& parts = {}) {
    std::uint64_t end = factors.order;
    if constexpr (!Matrix::rows_are_contiguous) {
        MultiplyRows<T> multiply_rows = nullptr;
        if constexpr (is_complex_element<T>) {
            multiply_rows = multiply_complex_rows<T>;
        } else if (parts) {
            multiply_rows = parts.kernels->multiply_rows;
        }
        if (multiply_rows != nullptr) {
            end = BackwardSubstitution<T>(multiply_rows, {factors.data, factors.order}, b).solve();
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
