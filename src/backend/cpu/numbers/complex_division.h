// SPDX-License-Identifier: Apache-2.0
#pragma once

// Division of complex numbers that keeps the quotient wherever it is representable: operands are
// scaled by the divisor's larger part, and where scaling by a value would lose bits the products
// are formed from mantissas and exponents apart. The operations and their order are fixed, so every
// user of it gets the same bits.

#include <algorithm>
#include <cmath>
#include <complex>
#include <limits>

namespace Tessaline {

/// A divisor with what all quotients by it share. Real is float or double.
template <typename Real>
class ComplexDivisor {
  public:
    using Complex = std::complex<Real>;

    explicit ComplexDivisor(Complex divisor)
        : divisor_(divisor),
          larger_part_(std::max(std::abs(divisor.real()), std::abs(divisor.imag()))),
          usable_(larger_part_ != 0 && is_finite(divisor)),
          scaled_{divisor.real() / larger_part_, divisor.imag() / larger_part_},
          scaled_squared_(scaled_.real() * scaled_.real() + scaled_.imag() * scaled_.imag()),
          scaled_keeps_size_(keeps_size(divisor.real(), scaled_.real()) &&
                             keeps_size(divisor.imag(), scaled_.imag())) {}

    /// `dividend` over the divisor. A zero divisor and parts that are not finite are left to the
    /// library's division, which knows their limits.
    Complex quotient(Complex dividend) const {
        if (!usable_ || !is_finite(dividend)) {
            return dividend / divisor_;
        }
        const Real a = dividend.real() / larger_part_;
        const Real b = dividend.imag() / larger_part_;
        const Complex fast((a * scaled_.real() + b * scaled_.imag()) / scaled_squared_,
                           (b * scaled_.real() - a * scaled_.imag()) / scaled_squared_);
        const bool stands = is_finite(fast) && keeps_size(dividend.real(), a) &&
                            keeps_size(dividend.imag(), b) && scaled_keeps_size_;
        return stands ? fast : exact_quotient(dividend);
    }

    /// Whether the parts of the divisor leave it to the dividends if the fast form stands.
    bool is_ordinary() const { return usable_ && scaled_keeps_size_; }
    Real larger_part() const { return larger_part_; }
    Complex scaled() const { return scaled_; }
    Real scaled_squared() const { return scaled_squared_; }

  private:
    /// A product of two numbers as mantissa times a power of two, which cannot leave the range.
    struct WideProduct {
        WideProduct(Real a, Real b) {
            int exponent_of_a = 0;
            int exponent_of_b = 0;
            mantissa = std::frexp(a, &exponent_of_a) * std::frexp(b, &exponent_of_b);
            exponent = exponent_of_a + exponent_of_b;
        }
        Real mantissa;
        int exponent;
    };

    static bool is_finite(Complex value) {
        return std::isfinite(value.real()) && std::isfinite(value.imag());
    }

    /// Whether scaling left the value normal, or zero because it was.
    static bool keeps_size(Real value, Real scaled) {
        return value == 0 || std::abs(scaled) >= std::numeric_limits<Real>::min();
    }

    Complex exact_quotient(Complex dividend) const {
        int exponent = 0;
        std::frexp(larger_part_, &exponent);
        const Real c = std::scalbn(divisor_.real(), -exponent);
        const Real d = std::scalbn(divisor_.imag(), -exponent);
        const Real squared = c * c + d * d;
        const auto part = [&](Real p, Real q, Real r, Real s) {
            return wide_sum_over({p, q}, {r, s}, squared, -2 * exponent);
        };
        return {part(dividend.real(), divisor_.real(), dividend.imag(), divisor_.imag()),
                part(dividend.imag(), divisor_.real(), -dividend.real(), divisor_.imag())};
    }

    /// (first + second) / denominator, times two to `exponent`. The sum is formed at the scale of
    /// its larger term.
    static Real wide_sum_over(WideProduct first, WideProduct second, Real denominator,
                              int exponent) {
        int scale = std::max(first.exponent, second.exponent);
        if (first.mantissa == 0) {
            scale = second.exponent;
        } else if (second.mantissa == 0) {
            scale = first.exponent;
        }
        const Real sum = std::scalbn(second.mantissa, second.exponent - scale) +
                         std::scalbn(first.mantissa, first.exponent - scale);
        return std::scalbn(sum / denominator, scale + exponent);
    }

    Complex divisor_;
    Real larger_part_;
    bool usable_;            ///< finite and not zero
    Complex scaled_;         ///< the divisor over its larger part
    Real scaled_squared_;    ///< the squared magnitude of `scaled_`
    bool scaled_keeps_size_; ///< neither part of `scaled_` became subnormal
};

/// The quotient of two complex numbers, as ComplexDivisor defines it.
template <typename Real>
std::complex<Real> careful_quotient(std::complex<Real> dividend, std::complex<Real> divisor) {
    return ComplexDivisor<Real>(divisor).quotient(dividend);
}

} // namespace Tessaline
