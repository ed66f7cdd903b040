// SPDX-License-Identifier: Apache-2.0
#pragma once

// Small unit lower triangles of complex numbers, solved a column of the right-hand side at a time.

#include "backend/cpu/simd/kernels/backward_substitution.h"
#include "backend/cpu/simd/kernels/complex_columns.h"
#include "backend/cpu/simd/kernels/elements.h"
#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/kernels/matmul.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

namespace Tessaline::SimdKernels {

namespace {

/// Set says whether products fuse.
template <typename Set>
class ComplexTriangle {
    using Real = typename Set::Component;
    using BuiltIn = typename BuiltInComplex<Real>::Type;
    static constexpr Index block = elimination_block;
    static_assert(Set::lost_product == LostProduct::recovers);
    using Columns = ComplexColumns<Set>;
    using Column = typename Columns::Column;
    using Plane = typename Columns::Plane;
    using Rows = decltype(Plane{} < Plane{});

  public:
    static void solve(const std::complex<Real>* L, Index l_stride, std::complex<Real>* B,
                      Index b_stride, Index columns) {
        Column of_lower[block];
        for_places<block>([&](auto k) {
            Columns::load(reinterpret_cast<const Real*>(L + k.value * l_stride), of_lower[k.value]);
        });
        for (Index j = 0; j < columns; ++j) {
            Real* const parts = reinterpret_cast<Real*>(B + j * b_stride);
            Column b;
            Columns::load(parts, b);
            for_places<block - 1>([&](auto k) {
                constexpr Rows below = Rows{0, 1, 2, 3, 4, 5, 6, 7} > static_cast<int>(k.value);
                const Column& l = of_lower[k.value];
                Column term;
                multiply_by_place<k.value>(l, b, term);
                // Zeros above are not subtracted: that would change the sign of a negative zero.
                b.real = below ? b.real - term.real : b.real;
                b.imag = below ? b.imag - term.imag : b.imag;
            });
            if (Columns::is_finite(b)) {
                Columns::store(parts, b);
            } else {
                solve_plainly(L, l_stride, parts);
            }
        }
    }

    static void substitute_forward(const std::complex<Real>* L, Index stride, std::complex<Real>* b,
                                   Index order) {
        Index first = 0;
        for (; first + block <= order; first += block) {
            const std::complex<Real>* const triangle = L + first * stride + first;
            solve(triangle, stride, b + first, order, 1);
            for (Index k = 0; k < block; k += streams) {
                subtract_columns(reinterpret_cast<const Real*>(triangle + k * stride + block),
                                 stride, reinterpret_cast<const Real*>(b + first + k),
                                 reinterpret_cast<Real*>(b + first + block), order - first - block);
            }
        }
        for (Index k = first; k < order; ++k) {
            subtract_plainly<1>(reinterpret_cast<const Real*>(L + k * stride), stride,
                                reinterpret_cast<const Real*>(b + k), reinterpret_cast<Real*>(b),
                                k + 1, order);
        }
    }

  private:
    using Elements = InterleavedElements<Set>;

    /// Columns that run down the memory at once, as for real matrices.
    static constexpr Index streams = 4;

    /// Subtracts from b the products of some columns with the elements of x.
    static void subtract_columns(const Real* columns, Index stride, const Real* x, Real* b,
                                 Index rows) {
        Complex<Set> of_x[streams];
        for_places<streams>([&](auto k) { of_x[k.value] = Elements::broadcast(x, k.value); });
        const auto subtract = [&](Index i, Index count, auto mask) {
            Complex<Set> sum = Elements::load(b, i, mask);
            for_places<streams>([&](auto k) {
                const Complex<Set> l = Elements::load(columns + 2 * k.value * stride, i, mask);
                sum = subtract_product<Set>(sum, of_x[k.value], l);
            });
            if ((Set::nan_lanes(sum.real) & Set::nan_lanes(sum.imag)) == 0) [[likely]] {
                Elements::store(b, i, sum, mask);
            } else {
                subtract_plainly<streams>(columns, stride, x, b, i, i + count);
            }
        };
        Index i = 0;
        for (; i + Set::lanes <= rows; i += Set::lanes) {
            subtract(i, Set::lanes, AllLanes{});
        }
        if (i < rows) {
            subtract(i, rows - i, Elements::first_lanes(rows - i));
        }
    }

    /// Subtracts the products of some columns in some rows, by products that recover infinities.
    template <Index Columns>
    [[gnu::noinline]] static void subtract_plainly(const Real* columns, Index stride, const Real* x,
                                                   Real* b, Index begin, Index end) {
        for (Index row = begin; row < end; ++row) {
            BuiltIn sum = built_in_element(b + 2 * row);
            for (Index k = 0; k < Columns; ++k) {
                sum -= recovering_product<Set>(built_in_element(columns + 2 * (k * stride + row)),
                                               built_in_element(x + 2 * k));
            }
            store_result<Set>(b + 2 * row, sum);
        }
    }

    /// The products of a column with one element of another.
    template <int At>
    [[gnu::always_inline]] static inline void multiply_by_place(const Column& a, const Column& b,
                                                                Column& products) {
        Column element;
        element.real = __builtin_shufflevector(b.real, b.real, At, At, At, At, At, At, At, At);
        element.imag = __builtin_shufflevector(b.imag, b.imag, At, At, At, At, At, At, At, At);
        Columns::multiply(a, element, products);
    }

    [[gnu::noinline]] static void solve_plainly(const std::complex<Real>* L, Index l_stride,
                                                Real* b) {
        for (Index k = 0; k < block; ++k) {
            const Real* const l = reinterpret_cast<const Real*>(L + k * l_stride);
            for (Index row = k + 1; row < block; ++row) {
                store_result<Set>(b + 2 * row,
                                  built_in_element(b + 2 * row) -
                                      recovering_product<Set>(built_in_element(l + 2 * row),
                                                              built_in_element(b + 2 * k)));
            }
        }
    }
};

template <typename Set>
constexpr TriangleKernels<std::complex<typename Set::Component>> make_complex_triangle_kernels() {
    return {.subtract_product = strided_interleaved_product<Set, Update::subtract>,
            .solve_triangle = ComplexTriangle<Set>::solve,
            .substitute_forward = ComplexTriangle<Set>::substitute_forward,
            .substitute_backward = BackwardSubstitution<ComplexRows<Set>>::solve};
}

} // namespace

} // namespace Tessaline::SimdKernels
