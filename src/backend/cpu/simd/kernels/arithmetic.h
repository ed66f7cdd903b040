// SPDX-License-Identifier: Apache-2.0
#pragma once

// How kernels walk over elements, and what a product is in each instruction set.
//
// A set that fuses rounds the first product of a pair of products, and adds or subtracts the second
// one unrounded; a set that does not rounds each operation. Sums of elements are never fused.

#include "backend/cpu/simd/tables/kernels.h"

#include <cstddef>

namespace Tessaline::SimdKernels {

/// The vectors of Set in kernels that round every operation.
template <typename Set>
struct Unfused : Set {
    static constexpr bool fuses = false;
};

/// Which NaN a kernel stores: the positive quiet one of its type, or any, for its caller to
/// replace.
enum class StoredNan { positive_quiet, any };

/// What becomes of a complex product whose parts both come out as NaN: it stays so, or is formed
/// anew as C99 Annex G does, which recovers infinities.
enum class LostProduct { stays, recovers };

/// The vectors of a set in kernels that follow both rules, of which neither follows from the other.
template <typename InstructionSet, StoredNan Nan, LostProduct Lost>
struct Rules : InstructionSet {
    static constexpr StoredNan stored_nan = Nan;
    static constexpr LostProduct lost_product = Lost;
};
template <typename Set>
using EngineRules = Rules<Set, StoredNan::positive_quiet, LostProduct::stays>;
template <typename Set>
using EngineSolverRules = Rules<Set, StoredNan::positive_quiet, LostProduct::recovers>;
template <typename Set>
using FloatingRules = Rules<Unfused<Set>, StoredNan::positive_quiet, LostProduct::recovers>;
/// For callers that round what is stored to elements of two bytes, and see to lost sums.
template <typename Set>
using WidenedRules = Rules<Unfused<Set>, StoredNan::any, LostProduct::stays>;

/// What a kernel computed, vector or single number, as it stores it.
template <typename Set>
typename Set::Register as_result(typename Set::Register value) {
    if constexpr (Set::stored_nan == StoredNan::positive_quiet) {
        return Set::with_one_nan(value);
    } else {
        return value;
    }
}
template <typename Set>
typename Set::Component as_result(typename Set::Component value) {
    constexpr auto not_a_number = static_cast<typename Set::Component>(__builtin_nan(""));
    return Set::stored_nan == StoredNan::any || value == value ? value : not_a_number;
}

/// Stands in for a mask where all lanes take part.
struct AllLanes {};

template <typename Set>
typename Set::Register load(const typename Set::Component* from, AllLanes) {
    return Set::load(from);
}
template <typename Set>
typename Set::Register load(const typename Set::Component* from, typename Set::Mask mask) {
    return Set::load(from, mask);
}
template <typename Set>
void store(typename Set::Component* to, typename Set::Register value, AllLanes) {
    Set::store(to, value);
}
template <typename Set>
void store(typename Set::Component* to, typename Set::Register value, typename Set::Mask mask) {
    Set::store(to, value, mask);
}

/// Calls `body(index, lanes)` for each vector of [0, count): with all lanes, and once with the
/// first ones only for what is left.
template <typename Set, typename Body>
void for_vectors(std::size_t count, const Body& body) {
    std::size_t i = 0;
    for (; i + Set::lanes <= count; i += Set::lanes) {
        body(i, AllLanes{});
    }
    if (i < count) {
        body(i, Set::first_lanes(count - i));
    }
}

/// An index that is known at compile time.
template <Index Value>
struct Place {
    static constexpr Index value = Value;
};

/// Calls `body` with the Place of each index below Count. Unlike a loop over a local array of
/// registers, which the compiler unrolls only after it has given the array memory.
template <Index Count, typename Body>
[[gnu::always_inline]] inline void for_places(const Body& body) {
    if constexpr (Count > 0) {
        for_places<Count - 1>(body);
        body(Place<Count - 1>{});
    }
}

/// A vector of complex numbers, or one number in all lanes.
template <typename Set>
struct Complex {
    typename Set::Register real;
    typename Set::Register imag;
};

template <typename Set, typename Lanes>
Complex<Set> load_complex(SplitInput from, std::size_t index, Lanes lanes) {
    return {load<Set>(from.real + index, lanes), load<Set>(from.imag + index, lanes)};
}
template <typename Set, typename Lanes>
void store_complex(SplitOutput to, std::size_t index, Complex<Set> value, Lanes lanes) {
    store<Set>(to.real + index, value.real, lanes);
    store<Set>(to.imag + index, value.imag, lanes);
}
template <typename Set>
Complex<Set> broadcast_complex(typename Set::Component real, typename Set::Component imag) {
    return {Set::broadcast(real), Set::broadcast(imag)};
}

/// A bit for each lane whose parts are both NaN.
template <typename Set>
unsigned lost_lanes(Complex<Set> value) {
    return Set::nan_lanes(value.real) & Set::nan_lanes(value.imag);
}

template <typename Set>
Complex<Set> plus(Complex<Set> a, Complex<Set> b) {
    return {a.real + b.real, a.imag + b.imag};
}

/// c + a b as a step of a matrix product.
template <typename Set>
typename Set::Register add_product(typename Set::Register c, typename Set::Register a,
                                   typename Set::Register b) {
    if constexpr (Set::fuses) {
        return Set::fused_add(a, b, c);
    } else {
        return c + a * b;
    }
}

/// c + a b as a step of a matrix product. With fusing, each of the four products goes straight into
/// its sum, the one with the real part of `a` first.
template <typename Set>
Complex<Set> add_product(Complex<Set> c, Complex<Set> a, Complex<Set> b) {
    if constexpr (Set::fuses) {
        return {Set::fused_subtract(a.imag, b.imag, Set::fused_add(a.real, b.real, c.real)),
                Set::fused_add(a.imag, b.real, Set::fused_add(a.real, b.imag, c.imag))};
    } else {
        return {c.real + (a.real * b.real - a.imag * b.imag),
                c.imag + (a.real * b.imag + a.imag * b.real)};
    }
}

/// a b + c d and a b - c d.
template <typename Set>
typename Set::Register sum_of_products(typename Set::Register a, typename Set::Register b,
                                       typename Set::Register c, typename Set::Register d) {
    if constexpr (Set::fuses) {
        return Set::fused_add(c, d, a * b);
    } else {
        return a * b + c * d;
    }
}
template <typename Set>
typename Set::Register difference_of_products(typename Set::Register a, typename Set::Register b,
                                              typename Set::Register c, typename Set::Register d) {
    if constexpr (Set::fuses) {
        return Set::fused_subtract(c, d, a * b);
    } else {
        return a * b - c * d;
    }
}

template <typename Set>
typename Set::Register product(typename Set::Register a, typename Set::Register b) {
    return a * b;
}
template <typename Set>
Complex<Set> product(Complex<Set> a, Complex<Set> b) {
    return {difference_of_products<Set>(a.real, b.real, a.imag, b.imag),
            sum_of_products<Set>(a.real, b.imag, a.imag, b.real)};
}

/// c - b a as a step of an elimination, whose matrices are transposes: the second factor is the one
/// that the text names first.
template <typename Set>
typename Set::Register subtract_product(typename Set::Register c, typename Set::Register a,
                                        typename Set::Register b) {
    return c - b * a;
}
template <typename Set>
Complex<Set> subtract_product(Complex<Set> c, Complex<Set> a, Complex<Set> b) {
    const Complex<Set> term = product<Set>(b, a);
    return {c.real - term.real, c.imag - term.imag};
}

/// The conjugate of `a` times `b`.
template <typename Set>
Complex<Set> conjugate_product(Complex<Set> a, Complex<Set> b) {
    return {sum_of_products<Set>(a.real, b.real, a.imag, b.imag),
            difference_of_products<Set>(a.real, b.imag, a.imag, b.real)};
}

} // namespace Tessaline::SimdKernels
