// SPDX-License-Identifier: Apache-2.0
#pragma once

// A few interleaved complex numbers below each other, taken apart into planes.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

namespace Tessaline::SimdKernels {

namespace {

/// Columns of `elimination_block` rows. Set says whether products fuse.
template <typename Set>
struct ComplexColumns {
    using Real = typename Set::Component;
    static constexpr Index rows = elimination_block;
    /// A plane of a column, whatever the set's registers.
    typedef Real Plane __attribute__((vector_size(rows * sizeof(Real))));

    struct Column {
        Plane real;
        Plane imag;
    };

    [[gnu::always_inline]] static inline void load(const Real* parts, Column& column) {
        Plane low;
        Plane high;
        __builtin_memcpy(&low, parts, sizeof(Plane));
        __builtin_memcpy(&high, parts + rows, sizeof(Plane));
        column.real = __builtin_shufflevector(low, high, 0, 2, 4, 6, 8, 10, 12, 14);
        column.imag = __builtin_shufflevector(low, high, 1, 3, 5, 7, 9, 11, 13, 15);
    }

    [[gnu::always_inline]] static inline void store(Real* parts, const Column& column) {
        const Plane low =
            __builtin_shufflevector(column.real, column.imag, 0, 8, 1, 9, 2, 10, 3, 11);
        const Plane high =
            __builtin_shufflevector(column.real, column.imag, 4, 12, 5, 13, 6, 14, 7, 15);
        __builtin_memcpy(parts, &low, sizeof(Plane));
        __builtin_memcpy(parts + rows, &high, sizeof(Plane));
    }

    /// The products of both, row by row, as SimdKernels::product() forms them.
    [[gnu::always_inline]] static inline void multiply(const Column& a, const Column& b,
                                                       Column& products) {
        if constexpr (Set::fuses) {
            products.real = Set::fused_subtract(a.imag, b.imag, a.real * b.real);
            products.imag = Set::fused_add(a.imag, b.real, a.real * b.imag);
        } else {
            products.real = a.real * b.real - a.imag * b.imag;
            products.imag = a.real * b.imag + a.imag * b.real;
        }
    }

    [[gnu::always_inline]] static inline bool is_finite(const Column& column) {
        const Plane zeros = (column.real - column.real) + (column.imag - column.imag);
        const Real sum = ((zeros[0] + zeros[1]) + (zeros[2] + zeros[3])) +
                         ((zeros[4] + zeros[5]) + (zeros[6] + zeros[7]));
        return sum == 0;
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
