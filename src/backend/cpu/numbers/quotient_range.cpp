// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/numbers/quotient_range.h"

#include "backend/cpu/numbers/compensated_products.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Tessaline::QuotientRange {

namespace {

/// value = mantissa times two to the exponent.
struct Split {
    explicit Split(double value) : mantissa(std::frexp(value, &exponent)) {}

    int exponent = 0;
    double mantissa;
};

/// (p q + r s) / |denominator|^2, where q and s are the denominator's parts. `part`, what division
/// gave for it, is returned where it is right already or nothing better can be had.
template <typename Real>
Real recovered(Real part, double p, double q, double r, double s) {
    if (part == 0 && products_cancel(p, q, r, s)) {
        return part;
    }
    // Scaled so that the square neither overflows nor underflows.
    const int exponent = Split(std::max(std::abs(q), std::abs(s))).exponent;
    const double q_scaled = std::scalbn(q, -exponent);
    const double s_scaled = std::scalbn(s, -exponent);
    const double divisor = q_scaled * q_scaled + s_scaled * s_scaled;
    const auto better = static_cast<Real>(
        CompensatedProducts::sum_divided({{p, q}, {r, s}}, divisor, -2 * exponent));
    return std::isfinite(better) ? better : part;
}

} // namespace

bool products_cancel(double a, double b, double c, double d) {
    const bool first_is_zero = a == 0 || b == 0;
    const bool second_is_zero = c == 0 || d == 0;
    if (first_is_zero || second_is_zero) {
        return first_is_zero && second_is_zero;
    }
    const Split split_a(a);
    const Split split_b(b);
    const Split split_c(c);
    const Split split_d(d);
    const int shift = split_a.exponent + split_b.exponent - split_c.exponent - split_d.exponent;
    // Products of mantissas lie in [1/4, 1), so their exponents differ by 2 at most.
    if (std::abs(shift) > 2) {
        return false;
    }
    const double first = split_a.mantissa * split_b.mantissa;
    const double second = split_c.mantissa * split_d.mantissa;
    const double first_low = std::fma(split_a.mantissa, split_b.mantissa, -first);
    const double second_low = std::fma(split_c.mantissa, split_d.mantissa, -second);
    return std::scalbn(first, shift) == -second && std::scalbn(first_low, shift) == -second_low;
}

template <typename C>
void recover_rounded_components(C numerator, C denominator, C& quotient) {
    constexpr double epsilon = std::numeric_limits<double>::epsilon();
    const double tiny =
        epsilon * std::max<double>(std::abs(quotient.real()), std::abs(quotient.imag()));
    const double real = numerator.real();
    const double imag = numerator.imag();
    if (std::abs(quotient.real()) <= tiny) {
        quotient.real(
            recovered(quotient.real(), real, denominator.real(), imag, denominator.imag()));
    }
    if (std::abs(quotient.imag()) <= tiny) {
        quotient.imag(
            recovered(quotient.imag(), imag, denominator.real(), -real, denominator.imag()));
    }
}

template void recover_rounded_components(std::complex<float>, std::complex<float>,
                                         std::complex<float>&);
template void recover_rounded_components(std::complex<double>, std::complex<double>,
                                         std::complex<double>&);

} // namespace Tessaline::QuotientRange
