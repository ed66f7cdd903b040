// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elimination of a few columns. Each step is one pass along them: it divides the pivot column,
// updates the columns right of it, and finds the pivot of the next.

#include "backend/cpu/simd/kernels/backward_substitution.h"
#include "backend/cpu/simd/kernels/complex_elimination.h"
#include "backend/cpu/simd/kernels/complex_triangle.h"
#include "backend/cpu/simd/kernels/matmul.h"
#include "backend/cpu/simd/kernels/pivot_search.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

#include <utility>

namespace Tessaline::SimdKernels {

namespace {

template <typename Set>
class Elimination {
    using T = typename Set::Component;
    using Register = typename Set::Register;
    static constexpr Index lanes = Set::lanes;
    /// A column of a block, whatever the set's registers.
    typedef T Column __attribute__((vector_size(elimination_block * sizeof(T))));
    using ColumnMask = decltype(Column{} < Column{});

  public:
    static EliminationProgress factor_panel(T* panel, Index stride, Index rows, Index columns,
                                            Index* pivots) {
        switch (columns) {
        case 1:
            return factor<1>(panel, stride, rows, pivots);
        case 2:
            return factor<2>(panel, stride, rows, pivots);
        case 3:
            return factor<3>(panel, stride, rows, pivots);
        case 4:
            return factor<4>(panel, stride, rows, pivots);
        case 5:
            return factor<5>(panel, stride, rows, pivots);
        case 6:
            return factor<6>(panel, stride, rows, pivots);
        case 7:
            return factor<7>(panel, stride, rows, pivots);
        default:
            return factor<elimination_block>(panel, stride, rows, pivots);
        }
    }

    static void solve_triangle(const T* L, Index l_stride, T* B, Index b_stride, Index columns) {
        // One column of L below the diagonal, zeros above. They are not subtracted: that would turn
        // a negative zero into a positive one.
        Column of_lower[elimination_block];
        for (Index k = 0; k < elimination_block; ++k) {
            __builtin_memcpy(&of_lower[k], L + k * l_stride, sizeof(Column));
        }
        for (Index j = 0; j < columns; ++j) {
            Column b;
            __builtin_memcpy(&b, B + j * b_stride, sizeof(Column));
            for_places<elimination_block - 1>([&](auto k) {
                constexpr ColumnMask below =
                    ColumnMask{0, 1, 2, 3, 4, 5, 6, 7} > static_cast<int>(k.value);
                b = below ? b - of_lower[k.value] * b[k.value] : b;
            });
            __builtin_memcpy(B + j * b_stride, &b, sizeof(Column));
        }
    }

    static void substitute_forward(const T* L, Index stride, T* b, Index order) {
        Index first = 0;
        for (; first + elimination_block <= order; first += elimination_block) {
            const T* const columns = L + first * stride + first;
            solve_triangle(columns, stride, b + first, order, 1);
            T* const below = b + first + elimination_block;
            for (Index k = 0; k < elimination_block; k += streams) {
                subtract_columns(columns + k * stride + elimination_block, stride, b + first + k,
                                 below, order - first - elimination_block);
            }
        }
        for (Index k = first; k < order; ++k) {
            for (Index row = k + 1; row < order; ++row) {
                b[row] -= L[k * stride + row] * b[k];
            }
        }
    }

  private:
    /// Columns that run down the memory at once. More would not find room beside each other in the
    /// first-level cache where they lie a multiple of its sets apart.
    static constexpr Index streams = 4;

    /// Subtracts from b the products of some columns with the elements of x.
    static void subtract_columns(const T* columns, Index stride, const T* x, T* b, Index rows) {
        Register of_x[streams];
        for_places<streams>([&](auto k) { of_x[k.value] = Set::broadcast(x[k.value]); });
        for_vectors<Set>(rows, [&](Index i, auto mask) {
            Register sum = load<Set>(b + i, mask);
            for_places<streams>([&](auto k) {
                const T* const column = columns + k.value * stride + i;
                sum = sum - load<Set>(column, mask) * of_x[k.value];
            });
            store<Set>(b + i, sum, mask);
        });
    }

    template <Index Columns>
    static EliminationProgress factor(T* panel, Index stride, Index rows, Index* pivots) {
        PivotSearch<Set> first;
        for_vectors<Set>(rows,
                         [&](Index i, auto mask) { first.include(load<Set>(panel + i, mask)); });
        return factor_from<Columns, 0>(panel, stride, rows, pivots, first);
    }

    template <Index Columns, Index Step>
    static EliminationProgress factor_from(T* panel, Index stride, Index rows, Index* pivots,
                                           const PivotSearch<Set>& search) {
        if (!search.is_finite()) {
            return {Step, EliminationEnd::non_finite};
        }
        bool found = false;
        const Index pivot = Step + search.row(found);
        if (!found) {
            return {Step, EliminationEnd::singular};
        }
        pivots[Step] = pivot;
        if (pivot != Step) {
            for (Index j = 0; j < Columns; ++j) {
                T* const column = panel + j * stride;
                const T upper = column[Step];
                column[Step] = column[pivot];
                column[pivot] = upper;
            }
        }
        PivotSearch<Set> next;
        const Index end = eliminate<Columns - Step - 1>(panel + Step * stride + Step, stride,
                                                        rows - Step - 1, next);
        if (end != rows - Step - 1) {
            return {Step, EliminationEnd::vanished_multiplier, Step + 1 + end};
        }
        if constexpr (Step + 1 < Columns) {
            return factor_from<Columns, Step + 1>(panel, stride, rows, pivots, next);
        } else {
            return {Columns};
        }
    }

    /// One step in the `rows` below the pivot. Returns the first one whose multiplier vanishes,
    /// which is left as it is like those below; `rows` where there is none.
    template <Index Right>
    static Index eliminate(T* pivot, Index stride, Index rows, PivotSearch<Set>& next) {
        Register of_pivot_row[Right + 1];
        for_places<Right + 1>(
            [&](auto j) { of_pivot_row[j.value] = Set::broadcast(pivot[j.value * stride]); });
        const Register infinity = Set::broadcast(static_cast<T>(__builtin_inf()));
        T* const below = pivot + 1;
        Index end = rows;
        for_vectors<Set>(rows, [&](Index i, auto mask) {
            if (end != rows) {
                return;
            }
            const Register elements = load<Set>(below + i, mask);
            const Register multipliers = elements / of_pivot_row[0];
            // Zeros times infinity.
            if (const unsigned zeros = Set::nan_lanes(multipliers * infinity); zeros != 0) {
                const Index vanished = first_vanished(elements, zeros);
                if (vanished < least(lanes, rows - i)) [[unlikely]] {
                    end = i + vanished;
                    eliminate_rows<Right>(pivot, stride, i, end);
                    return;
                }
            }
            store<Set>(below + i, multipliers, mask);
            for_places<Right>([&](auto j) {
                T* const column = below + (j.value + 1) * stride + i;
                const Register left =
                    load<Set>(column, mask) - multipliers * of_pivot_row[j.value + 1];
                store<Set>(column, left, mask);
                if constexpr (j.value == 0) {
                    next.include(left);
                }
            });
        });
        return end;
    }

    static Index least(Index a, Index b) { return a < b ? a : b; }

    /// The first of the lanes with a zero multiplier whose element is not zero.
    static Index first_vanished(Register elements, unsigned zeros) {
        Index lane = 0;
        while (lane < lanes && ((zeros >> lane & 1U) == 0 || elements[lane] == 0)) {
            ++lane;
        }
        return lane;
    }

    /// One step in some rows, element by element.
    template <Index Right>
    [[gnu::noinline]] static void eliminate_rows(T* pivot, Index stride, Index begin, Index end) {
        for (Index row = begin + 1; row < end + 1; ++row) {
            const T multiplier = pivot[row] / pivot[0];
            pivot[row] = multiplier;
            for (Index j = 1; j <= Right; ++j) {
                pivot[j * stride + row] -= multiplier * pivot[j * stride];
            }
        }
    }
};

template <typename Set>
constexpr EliminationKernels<typename Set::Component> make_elimination_kernels() {
    using Kernels = Elimination<Set>;
    return {
        {.subtract_product = strided_product<RealElements<FloatingRules<Set>>, Update::subtract>,
         .solve_triangle = Kernels::solve_triangle,
         .substitute_forward = Kernels::substitute_forward,
         .substitute_backward = BackwardSubstitution<RealRows<Set>>::solve},
        Kernels::factor_panel};
}

template <typename Set>
constexpr EliminationKernels<std::complex<typename Set::Component>>
make_complex_elimination_kernels() {
    using Kernels = ComplexElimination<Set>;
    return {make_complex_triangle_kernels<Set>(), Kernels::largest_magnitude, Kernels::largest_part,
            Kernels::template eliminate<ScaledQuotients<Set>>};
}

template <typename FloatSet, typename DoubleSet>
constexpr EliminationTable make_elimination_table() {
    return {make_elimination_kernels<FloatSet>(), make_elimination_kernels<DoubleSet>(),
            make_complex_elimination_kernels<FloatingRules<FloatSet>>(),
            make_complex_elimination_kernels<FloatingRules<DoubleSet>>()};
}

} // namespace

} // namespace Tessaline::SimdKernels
