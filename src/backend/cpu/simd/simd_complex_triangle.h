// SPDX-License-Identifier: Apache-2.0
#pragma once

// Small unit lower triangles of complex numbers, solved a column of the right-hand side at a time.

#include "backend/cpu/simd/simd_elimination_kernels.h"
#include "backend/cpu/simd/simd_infinity_recovery.h"

namespace Tessaline::SimdKernels {

namespace {

template <typename Set>
class ComplexTriangle {
    using Real = typename Set::Component;
    using BuiltIn = typename BuiltInComplex<Real>::Type;
    static constexpr Index block = elimination_block;
    /// A plane of a column of a block, whatever the set's registers.
    typedef Real Plane __attribute__((vector_size(block * sizeof(Real))));
    using Rows = decltype(Plane{} < Plane{});

    struct Column {
        Plane real;
        Plane imag;
    };

  public:
    static void solve(const std::complex<Real>* L, Index l_stride, std::complex<Real>* B,
                      Index b_stride, Index columns) {
        Column of_L[block];
        for_places<block>([&](auto k) {
            load(reinterpret_cast<const Real*>(L + k.value * l_stride), of_L[k.value]);
        });
        for (Index j = 0; j < columns; ++j) {
            Real* const parts = reinterpret_cast<Real*>(B + j * b_stride);
            Column b;
            load(parts, b);
            for_places<block - 1>([&](auto k) {
                constexpr Rows below = Rows{0, 1, 2, 3, 4, 5, 6, 7} > static_cast<int>(k.value);
                const Column& l = of_L[k.value];
                const Real real = b.real[k.value];
                const Real imag = b.imag[k.value];
                // Zeros above are not subtracted: that would change the sign of a negative zero.
                b.real = below ? b.real - (l.real * real - l.imag * imag) : b.real;
                b.imag = below ? b.imag - (l.real * imag + l.imag * real) : b.imag;
            });
            if (is_finite(b)) {
                store(parts, b);
            } else {
                solve_plainly(L, l_stride, parts);
            }
        }
    }

  private:
    [[gnu::always_inline]] static inline void load(const Real* parts, Column& column) {
        Plane low;
        Plane high;
        __builtin_memcpy(&low, parts, sizeof(Plane));
        __builtin_memcpy(&high, parts + block, sizeof(Plane));
        column.real = __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14);
        column.imag = __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
    }

    [[gnu::always_inline]] static inline void store(Real* parts, const Column& column) {
        const Plane low =
            __builtin_shufflevector(column.real, column.imag, 0, 8, 1, 9, 2, 10, 3, 11);
        const Plane high =
            __builtin_shufflevector(column.real, column.imag, 4, 12, 5, 13, 6, 14, 7, 15);
        __builtin_memcpy(parts, &low, sizeof(Plane));
        __builtin_memcpy(parts + block, &high, sizeof(Plane));
    }

    [[gnu::always_inline]] static inline bool is_finite(const Column& column) {
        const Plane zeros = (column.real - column.real) + (column.imag - column.imag);
        const Real sum = ((zeros[0] + zeros[1]) + (zeros[2] + zeros[3])) +
                         ((zeros[4] + zeros[5]) + (zeros[6] + zeros[7]));
        return sum == 0;
    }

    static BuiltIn element(const Real* parts) {
        BuiltIn value;
        __real__ value = parts[0];
        __imag__ value = parts[1];
        return value;
    }

    [[gnu::noinline]] static void solve_plainly(const std::complex<Real>* L, Index l_stride,
                                                Real* b) {
        for (Index k = 0; k < block; ++k) {
            const Real* const l = reinterpret_cast<const Real*>(L + k * l_stride);
            for (Index row = k + 1; row < block; ++row) {
                const BuiltIn left =
                    element(b + 2 * row) - element(l + 2 * row) * element(b + 2 * k);
                b[2 * row] = __real__ left;
                b[2 * row + 1] = __imag__ left;
            }
        }
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
