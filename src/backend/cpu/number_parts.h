// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts of a real or complex number under one set of names, so that a solver is written once
// for both. A real number has an imaginary part of 0.

#include "tessaline/storage/element_traits.h"

#include <algorithm>
#include <cmath>
#include <complex>

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

/// Both parts times two to the `exponent`, rounded where the range ends.
template <typename C>
C scaled(C value, int exponent) {
    if constexpr (is_complex_element<C>) {
        return {std::scalbn(value.real(), exponent), std::scalbn(value.imag(), exponent)};
    } else {
        return std::scalbn(value, exponent);
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
