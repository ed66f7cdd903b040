// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts of a real or complex number under one set of names, so that a solver is written once
// for both. A real number has an imaginary part of 0.

#include "tessaline/storage/element_traits.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <complex>
#include <cstdint>
#include <limits>

namespace Tessaline::NumberParts {

template <typename C>
Component<C> real_part(C value) {
    if constexpr (is_complex_element<C>) {
        return value.real();
    } else {
        return value;
    }
}

template <typename C>
Component<C> imaginary_part(C value) {
    if constexpr (is_complex_element<C>) {
        return value.imag();
    } else {
        return 0;
    }
}

/// The larger magnitude of the two parts.
template <typename C>
Component<C> largest_part(C value) {
    return std::max(std::abs(real_part(value)), std::abs(imaginary_part(value)));
}

template <typename C>
bool is_finite(C value) {
    return std::isfinite(real_part(value)) && std::isfinite(imaginary_part(value));
}

/// std::scalbn, in one multiplication where two to the `exponent` is a normal number: either rounds
/// once at most.
inline double scaled_part(double value, int exponent) {
    using Limits = std::numeric_limits<double>;
    if (exponent < Limits::min_exponent - 1 || exponent >= Limits::max_exponent) {
        return std::scalbn(value, exponent);
    }
    constexpr int bias = Limits::max_exponent - 1;
    constexpr int mantissa_bits = Limits::digits - 1;
    return value *
           std::bit_cast<double>(static_cast<std::uint64_t>(exponent + bias) << mantissa_bits);
}
inline float scaled_part(float value, int exponent) {
    return std::scalbn(value, exponent);
}

/// std::ilogb of a finite number that is not zero.
inline int binary_exponent(double value) {
    using Limits = std::numeric_limits<double>;
    if (std::abs(value) < Limits::min()) {
        return std::ilogb(value);
    }
    const auto magnitude = std::bit_cast<std::uint64_t>(std::abs(value));
    return static_cast<int>(magnitude >> (Limits::digits - 1)) - (Limits::max_exponent - 1);
}

/// Both parts times two to the `exponent`, rounded where the range ends.
template <typename C>
C scaled(C value, int exponent) {
    if constexpr (is_complex_element<C>) {
        return {scaled_part(value.real(), exponent), scaled_part(value.imag(), exponent)};
    } else {
        return scaled_part(value, exponent);
    }
}

/// Both parts divided by a real number, part by part.
template <typename C>
C divided(C value, Component<C> divisor) {
    if constexpr (is_complex_element<C>) {
        return {value.real() / divisor, value.imag() / divisor};
    } else {
        return value / divisor;
    }
}

} // namespace Tessaline::NumberParts
