// SPDX-License-Identifier: Apache-2.0
#pragma once

// Complex products, and sums of them, that ended as NaN in both parts, formed anew with products
// that recover infinities as C99 Annex G does. What the fast form gives elsewhere needs no second
// look: where a product recovers, it had two parts of NaN, which stay in the sum.

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

/// Elements are interleaved.
template <typename Set>
class InfinityRecovery {
    using Component = typename Set::Component;
    using BuiltIn = typename BuiltInComplex<Component>::Type;

  public:
    /// Neighbours in a vector of sums, each over the terms A[k] B[k b_step + i b_next] for the
    /// lane i.
    struct Sums {
        const Component* A;
        const Component* B;
        Index b_step;
        Index b_next;
        Index terms;
        const Component* before; ///< what the terms are added to or subtracted from; null for zeros
    };

    /// The vector with each of its first `count` lanes that was lost formed anew.
    template <Update Kind>
    [[gnu::noinline]] static Complex<Set> recovered(Complex<Set> found, Index count,
                                                    const Sums& sums) {
        return replace_lost(found, count, [&](Index i) {
            BuiltIn sum = sums.before == nullptr ? BuiltIn{} : element(sums.before, i);
            if (is_lost(sum)) {
                return sum;
            }
            for (Index k = 0; k < sums.terms; ++k) {
                const BuiltIn term =
                    element(sums.A, k) * element(sums.B, k * sums.b_step + i * sums.b_next);
                sum = Kind == Update::replace ? sum + term : sum - term;
            }
            return sum;
        });
    }

    /// The same for the products of one factor.
    [[gnu::noinline]] static Complex<Set> recovered(Complex<Set> found, Index count,
                                                    const Component* factor, const Component* b) {
        return replace_lost(found, count,
                            [&](Index i) { return element(factor, 0) * element(b, i); });
    }

  private:
    static BuiltIn element(const Component* elements, Index index) {
        BuiltIn value;
        __real__ value = elements[2 * index];
        __imag__ value = elements[2 * index + 1];
        return value;
    }

    static bool is_lost(BuiltIn value) {
        return __real__ value != __real__ value && __imag__ value != __imag__ value;
    }

    template <typename At>
    static Complex<Set> replace_lost(Complex<Set> found, Index count, const At& at) {
        const unsigned lost = lost_lanes<Set>(found);
        for (Index i = 0; i < count; ++i) {
            if ((lost >> i & 1U) != 0) {
                const BuiltIn value = at(i);
                found.real[i] = __real__ value;
                found.imag[i] = __imag__ value;
            }
        }
        return found;
    }
};

} // namespace Tessaline::SimdKernels
