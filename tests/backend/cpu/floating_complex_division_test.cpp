// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_complex_division.h"

#include "support/counter_random.h"

#include <cstring>
#include <gtest/gtest.h>

namespace Tessaline {
namespace {

/// Holds the product of two doubles exactly, and the range of all quotients.
__extension__ using Exact = __float128;

template <typename Real>
class CarefulDivision : public ::testing::Test {
  protected:
    using Complex = std::complex<Real>;
    using Limits = std::numeric_limits<Real>;

    /// A number of any exponent down to the smallest subnormal one, now and then zero.
    Real any_real() {
        constexpr int lowest = Limits::min_exponent - Limits::digits;
        constexpr int range = Limits::max_exponent - lowest;
        if (random_.below(16) == 0) {
            return random_.below(2) == 0 ? Real(0) : -Real(0);
        }
        const int exponent = lowest + 1 + static_cast<int>(random_.below(range));
        return std::ldexp(mantissa(), exponent);
    }
    /// A number within 40 binades of `size`.
    Real real_near(Real size) {
        return std::ldexp(mantissa(), std::ilogb(size) - 20 + static_cast<int>(random_.below(40)));
    }
    Complex any_complex() { return {any_real(), any_real()}; }

  private:
    /// In (-1, -1/2] or [1/2, 1).
    Real mantissa() {
        const auto fraction = static_cast<Real>(random_.below(1U << 24U)) * Real(0x1p-25);
        const Real magnitude = fraction + Real(0.5);
        return random_.below(2) == 0 ? magnitude : -magnitude;
    }

    Testing::CounterRandom random_{4};
};

using Reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CarefulDivision, Reals);

/// p q + r s over den, times two to `exponent`, from mantissas and exponents.
template <typename Real>
Real recombined(Real p, Real q, Real r, Real s, Real den, int exponent) {
    int ep = 0;
    int eq = 0;
    int er = 0;
    int es = 0;
    const Real m1 = std::frexp(p, &ep) * std::frexp(q, &eq);
    const Real m2 = std::frexp(r, &er) * std::frexp(s, &es);
    const int e1 = ep + eq;
    const int e2 = er + es;
    if (m1 == 0 || m2 == 0) {
        return std::scalbn((m1 + m2) / den, (m1 == 0 ? e2 : e1) + exponent);
    }
    const int larger = std::max(e1, e2);
    const Real sum = std::scalbn(m1, e1 - larger) + std::scalbn(m2, e2 - larger);
    return std::scalbn(sum / den, larger + exponent);
}

/// a + ib over c + id for finite values and a divisor that is not zero, step by step.
template <typename Real>
std::complex<Real> plain_quotient(Real a, Real b, Real c, Real d) {
    const Real x = std::max(std::abs(c), std::abs(d));
    const Real ar = a / x;
    const Real ai = b / x;
    const Real cr = c / x;
    const Real ci = d / x;
    const Real den = cr * cr + ci * ci;
    const Real re = (ar * cr + ai * ci) / den;
    const Real im = (ai * cr - ar * ci) / den;
    constexpr Real smallest = std::numeric_limits<Real>::min();
    const bool kept = (a == 0 || std::abs(ar) >= smallest) &&
                      (b == 0 || std::abs(ai) >= smallest) &&
                      (c == 0 || std::abs(cr) >= smallest) && (d == 0 || std::abs(ci) >= smallest);
    if (kept && std::isfinite(re) && std::isfinite(im)) {
        return {re, im};
    }
    int e = 0;
    std::frexp(x, &e);
    const Real c2 = std::scalbn(c, -e);
    const Real d2 = std::scalbn(d, -e);
    const Real squared = c2 * c2 + d2 * d2;
    return {recombined(a, c, b, d, squared, -2 * e), recombined(b, c, -a, d, squared, -2 * e)};
}

/// One part against its exact value. Nine roundings lead to it, each relative to the magnitude of
/// the whole quotient, which exceeds its larger part by a factor of at most the root of two; where
/// the result is subnormal, its grid adds two steps.
template <typename Real>
void expect_near(Real found, Exact exact, Exact larger_part) {
    using Limits = std::numeric_limits<Real>;
    const Exact bound =
        9 * 1.4143 * Exact(Limits::epsilon()) / 2 * larger_part + 2 * Exact(Limits::denorm_min());
    const Exact magnitude = exact < 0 ? -exact : exact;
    if (std::isfinite(found)) {
        const Exact error = Exact(found) - exact;
        ASSERT_TRUE(error <= bound && -error <= bound) << found;
    } else {
        ASSERT_TRUE(magnitude + bound > Exact(Limits::max())) << found;
        ASSERT_EQ(found > 0, exact > 0);
    }
}

TYPED_TEST(CarefulDivision, HoldsOverTheWholeExponentRange) {
    using Real = TypeParam;
    for (int round = 0; round < 200000; ++round) {
        auto dividend = this->any_complex();
        auto divisor = this->any_complex();
        if (round % 2 == 0 && divisor.imag() != 0) {
            // Parts of like size, which leave no quotient to the limits of the range.
            dividend = {this->real_near(divisor.imag()), this->real_near(divisor.imag())};
            divisor.real(this->real_near(divisor.imag()));
        }
        if (divisor == Real(0) || !std::isfinite(std::abs(dividend)) ||
            !std::isfinite(divisor.real())) {
            continue;
        }
        const auto quotient = careful_quotient(dividend, divisor);
        const Real a = dividend.real();
        const Real b = dividend.imag();
        const Real c = divisor.real();
        const Real d = divisor.imag();
        SCOPED_TRACE(::testing::Message() << std::hexfloat << dividend << " / " << divisor);
        const auto plain = plain_quotient(a, b, c, d);
        ASSERT_EQ(std::memcmp(&quotient, &plain, sizeof(plain)), 0) << quotient << plain;
        const Exact squared = Exact(c) * c + Exact(d) * d;
        const Exact re = (Exact(a) * c + Exact(b) * d) / squared;
        const Exact im = (Exact(b) * c - Exact(a) * d) / squared;
        const Exact larger = std::max(re < 0 ? -re : re, im < 0 ? -im : im);
        expect_near<Real>(quotient.real(), re, larger);
        expect_near<Real>(quotient.imag(), im, larger);
        if (this->HasFatalFailure()) {
            return;
        }
    }
}

TYPED_TEST(CarefulDivision, KeepsTheBitsOfSubnormalOperands) {
    using Real = TypeParam;
    using Value = std::complex<Real>;
    const Real tiny = std::numeric_limits<Real>::denorm_min();
    EXPECT_EQ(careful_quotient(Value(3 * tiny, tiny), Value(tiny, 0)), Value(3, 1));
    EXPECT_EQ(careful_quotient(Value(2 * tiny, 4 * tiny), Value(tiny, tiny)), Value(3, 1));
    EXPECT_EQ(careful_quotient(Value(tiny, 0), Value(0, tiny)), Value(0, -1));
    // The smaller part of the divisor is all of the imaginary part of the quotient.
    const Real large = std::numeric_limits<Real>::max() / 2;
    EXPECT_EQ(careful_quotient(Value(large, 0), Value(1, tiny)), Value(large, -large * tiny));
}

TYPED_TEST(CarefulDivision, LeavesTheLimitsToTheLibrary) {
    using Real = TypeParam;
    using Value = std::complex<Real>;
    constexpr Real inf = std::numeric_limits<Real>::infinity();
    constexpr Real nan = std::numeric_limits<Real>::quiet_NaN();
    for (const Value divisor : {Value(0, 0), Value(-Real(0), 0)}) {
        EXPECT_TRUE(std::isinf(careful_quotient(Value(1, 2), divisor).real()));
        EXPECT_TRUE(std::isnan(careful_quotient(Value(0, 0), divisor).real()));
    }
    for (const Value infinite : {Value(inf, 1), Value(nan, -inf), Value(inf, inf)}) {
        EXPECT_EQ(careful_quotient(Value(1, 2), infinite), Value(0, 0));
        const Value quotient = careful_quotient(infinite, Value(3, 4));
        EXPECT_TRUE(std::isinf(quotient.real()) || std::isinf(quotient.imag()));
    }
    EXPECT_TRUE(std::isnan(careful_quotient(Value(nan, 1), Value(3, 4)).real()));
}

} // namespace
} // namespace Tessaline
