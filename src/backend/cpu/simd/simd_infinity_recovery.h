// SPDX-License-Identifier: Apache-2.0
#pragma once

// Complex sums of products that ended as NaN in both parts, formed anew with products that recover
// infinities as C99 Annex G does. What the fast form gives elsewhere needs no second look: where a
// product recovers, it had two parts of NaN, which stay in the sum.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

/// What a product does to its result.
enum class Update { replace, subtract };

/// The compiler's own complex type, whose products recover infinities.
template <typename Component>
struct BuiltInComplex;
template <>
struct BuiltInComplex<float> {
    __extension__ using Type = _Complex float;
};
template <>
struct BuiltInComplex<double> {
    __extension__ using Type = _Complex double;
};

/// One vector of neighbours in a row of C, before the terms of a block are stored.
template <typename Set, Update Kind>
struct InfinityRecovery {
    using Component = typename Set::Component;
    using BuiltIn = typename BuiltInComplex<Component>::Type;

    const Component* A; ///< interleaved: the row's factors of the terms
    const Component* B; ///< those of the first column, `b_stride` elements apart
    Index b_stride;
    const Component* C; ///< the sums before these terms
    bool starts_from_zero;
    Index terms;
    Index columns; ///< lanes that stand for an element

    [[gnu::noinline]] Complex<Set> recovered(Complex<Set> sums) const {
        const unsigned lost = Set::nan_lanes(sums.real) & Set::nan_lanes(sums.imag);
        for (Index column = 0; column < columns; ++column) {
            if ((lost >> column & 1U) != 0) {
                const BuiltIn sum = sum_of(column);
                sums.real[column] = __real__ sum;
                sums.imag[column] = __imag__ sum;
            }
        }
        return sums;
    }

  private:
    static BuiltIn element(const Component* parts) {
        BuiltIn value;
        __real__ value = parts[0];
        __imag__ value = parts[1];
        return value;
    }

    BuiltIn sum_of(Index column) const {
        BuiltIn sum = starts_from_zero ? BuiltIn{} : element(C + 2 * column);
        if (__real__ sum != __real__ sum && __imag__ sum != __imag__ sum) {
            return sum;
        }
        for (Index k = 0; k < terms; ++k) {
            const BuiltIn term = element(A + 2 * k) * element(B + 2 * (k * b_stride + column));
            sum = Kind == Update::replace ? sum + term : sum - term;
        }
        return sum;
    }
};

} // namespace Tessaline::SimdKernels
