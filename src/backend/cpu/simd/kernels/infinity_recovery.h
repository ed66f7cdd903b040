// SPDX-License-Identifier: Apache-2.0
#pragma once

// Complex products, and sums of them, that ended as NaN in both parts, formed anew with products
// that recover infinities as C99 Annex G does. What the fast form gives elsewhere needs no second
// look: where a product recovers, it had two parts of NaN, which stay in the sum.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/tables/built_in_complex.h"

namespace Tessaline::SimdKernels {

/// What a product does to its result.
enum class Update { replace, subtract };

/// An element of interleaved parts, and a computed one stored.
template <typename Component>
typename BuiltInComplex<Component>::Type built_in_element(const Component* parts) {
    typename BuiltInComplex<Component>::Type value;
    __real__ value = parts[0];
    __imag__ value = parts[1];
    return value;
}
template <typename Set>
void store_result(typename Set::Component* parts,
                  typename BuiltInComplex<typename Set::Component>::Type value) {
    parts[0] = as_result<Set>(__real__ value);
    parts[1] = as_result<Set>(__imag__ value);
}

/// a b as product<Set>() has it, but that infinities are recovered.
template <typename Set>
auto recovering_product(typename BuiltInComplex<typename Set::Component>::Type a,
                        typename BuiltInComplex<typename Set::Component>::Type b) {
    if constexpr (Set::fuses) {
        static_assert(sizeof(typename Set::Component) == sizeof(float));
        decltype(a) fused;
        __real__ fused = __builtin_fmaf(-__imag__ a, __imag__ b, __real__ a * __real__ b);
        __imag__ fused = __builtin_fmaf(__imag__ a, __real__ b, __real__ a * __imag__ b);
        if (__real__ fused == __real__ fused || __imag__ fused == __imag__ fused) {
            return fused;
        }
    }
    return a * b;
}

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
                const BuiltIn a = element(sums.A, k);
                const BuiltIn b = element(sums.B, k * sums.b_step + i * sums.b_next);
                if constexpr (Kind == Update::replace) {
                    sum += a * b;
                } else {
                    sum -= recovering_product<Set>(b, a);
                }
            }
            return sum;
        });
    }

    /// The products of one factor with neighbours, of which the lost ones are formed anew.
    [[gnu::noinline]] static Complex<Set> recovered(Complex<Set> found, Index count,
                                                    const Component* factor, const Component* b) {
        return replace_lost(found, count,
                            [&](Index i) { return element(factor, 0) * element(b, i); });
    }

  private:
    static BuiltIn element(const Component* elements, Index index) {
        return built_in_element(elements + 2 * index);
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
