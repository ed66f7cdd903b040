// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whether a quotient still says what was divided: a multiplier of an elimination that came out as
// zero must have been zero, and not have been rounded away.

#include "tessaline/storage/element_traits.h"

#include <cmath>
#include <limits>

namespace Tessaline::QuotientRange {

/// Whether a b + c d is exactly zero, for finite factors.
bool products_cancel(double a, double b, double c, double d);

/// Whether neither part of a complex quotient is so small beside the other that
/// recover_rounded_components() would look at it.
template <typename C>
bool keeps_both_components(C quotient) {
    const double real = std::abs(quotient.real());
    const double imag = std::abs(quotient.imag());
    constexpr double epsilon = std::numeric_limits<double>::epsilon();
    return real > epsilon * imag && imag > epsilon * real;
}

/// Computes a part of a complex quotient anew, in one rounding, where it is so small beside the
/// other part that division may have rounded it away. A part that cannot be computed so is kept.
/// C is std::complex<float> or std::complex<double>; numerator and denominator are finite.
template <typename C>
void recover_rounded_components(C numerator, C denominator, C& quotient);

extern template void recover_rounded_components(std::complex<float>, std::complex<float>,
                                                std::complex<float>&);
extern template void recover_rounded_components(std::complex<double>, std::complex<double>,
                                                std::complex<double>&);

/// Whether `quotient` is zero although the quotient of the two finite numbers is not.
template <typename C>
bool vanished(C numerator, C denominator, C quotient) {
    if (numerator == C(0) || quotient != C(0)) {
        return false;
    }
    if constexpr (is_complex_element<C>) {
        return !products_cancel(numerator.real(), denominator.real(), numerator.imag(),
                                denominator.imag()) ||
               !products_cancel(numerator.imag(), denominator.real(), -numerator.real(),
                                denominator.imag());
    } else {
        return true;
    }
}

} // namespace Tessaline::QuotientRange
