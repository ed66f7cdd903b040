// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/numbers/complex_division.h"

#include "support/counter_random.h"

#include <cstring>
#include <gtest/gtest.h>

namespace Tessaline {
namespace {

using Testing::CounterRandom;

/// Holds the product of two doubles exactly, and the range of all quotients.
__extension__ using Exact = __float128;

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

/// A number with an exponent in [lowest, lowest + count), as far as the type has it.
template <typename Real>
Real random_real(CounterRandom& random, int lowest, int count) {
    const Real mantissa = 1 + static_cast<Real>(random.below(1U << 24U)) * Real(0x1p-24);
    const int exponent = lowest + static_cast<int>(random.below(static_cast<unsigned>(count)));
    return std::ldexp(random.below(2) == 0 ? mantissa : -mantissa, exponent);
}

/// One part against its exact value. Nine roundings lead to it, each relative to the magnitude of
/// the whole quotient, which exceeds its larger part by a factor of at most the root of two; where
/// the result is subnormal, its grid adds two steps.
template <typename Real>
bool is_near(Real found, Exact exact, Exact larger_part) {
    using Limits = std::numeric_limits<Real>;
    const Exact bound =
        9 * 1.4143 * Limits::epsilon() / 2 * larger_part + 2 * Exact(Limits::denorm_min());
    if (std::isfinite(found)) {
        return exact - bound <= found && found <= exact + bound;
    }
    const Exact magnitude = found > 0 ? exact : -exact;
    return std::isinf(found) && magnitude + bound > Limits::max();
}

template <typename Real>
class CarefulDivision : public ::testing::Test {};

using Reals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(CarefulDivision, Reals);

TYPED_TEST(CarefulDivision, HoldsOverTheWholeExponentRange) {
    using Real = TypeParam;
    using Limits = std::numeric_limits<Real>;
    constexpr int lowest = Limits::min_exponent - Limits::digits;
    constexpr int range = Limits::max_exponent - lowest;
    CounterRandom random(4);
    for (int round = 0; round < 200000; ++round) {
        // Every other time parts of like size, which leave no quotient to the limits of the range.
        const bool alike = round % 2 == 0;
        const int from = alike ? lowest + static_cast<int>(random.below(range - 40)) : lowest;
        Real parts[4];
        for (Real& part : parts) {
            part = random_real<Real>(random, from, alike ? 40 : range);
        }
        if (random.below(4) == 0) {
            parts[random.below(4)] = random.below(2) == 0 ? Real(0) : -Real(0);
        }
        const auto [a, b, c, d] = parts;
        if (c == 0 && d == 0) {
            continue;
        }
        const auto quotient = careful_quotient<Real>({a, b}, {c, d});
        const auto plain = plain_quotient(a, b, c, d);
        SCOPED_TRACE(::testing::Message() << std::hexfloat << a << " + i " << b << " over " << c
                                          << " + i " << d << ": " << quotient);
        ASSERT_EQ(std::memcmp(&quotient, &plain, sizeof(plain)), 0) << plain;
        const Exact squared = Exact(c) * c + Exact(d) * d;
        const Exact re = (Exact(a) * c + Exact(b) * d) / squared;
        const Exact im = (Exact(b) * c - Exact(a) * d) / squared;
        const Exact larger = std::max(re < 0 ? -re : re, im < 0 ? -im : im);
        ASSERT_TRUE(is_near(quotient.real(), re, larger));
        ASSERT_TRUE(is_near(quotient.imag(), im, larger));
    }
}

TYPED_TEST(CarefulDivision, KeepsTheBitsOfSubnormalOperands) {
    using Value = std::complex<TypeParam>;
    const TypeParam tiny = std::numeric_limits<TypeParam>::denorm_min();
    const TypeParam large = std::numeric_limits<TypeParam>::max() / 2;
    EXPECT_EQ(careful_quotient(Value(3 * tiny, tiny), Value(tiny, 0)), Value(3, 1));
    EXPECT_EQ(careful_quotient(Value(2 * tiny, 4 * tiny), Value(tiny, tiny)), Value(3, 1));
    EXPECT_EQ(careful_quotient(Value(tiny, 0), Value(0, tiny)), Value(0, -1));
    // The smaller part of the divisor is all of the imaginary part of the quotient.
    EXPECT_EQ(careful_quotient(Value(large, 0), Value(1, tiny)), Value(large, -large * tiny));
}

TYPED_TEST(CarefulDivision, LeavesTheLimitsToTheLibrary) {
    using Value = std::complex<TypeParam>;
    constexpr TypeParam inf = std::numeric_limits<TypeParam>::infinity();
    constexpr TypeParam nan = std::numeric_limits<TypeParam>::quiet_NaN();
    EXPECT_TRUE(std::isinf(careful_quotient(Value(1, 2), Value(0, 0)).real()));
    EXPECT_TRUE(std::isnan(careful_quotient(Value(0, 0), Value(0, 0)).real()));
    EXPECT_TRUE(std::isnan(careful_quotient(Value(nan, 1), Value(3, 4)).real()));
    for (const Value infinite : {Value(inf, 1), Value(nan, -inf), Value(inf, inf)}) {
        EXPECT_EQ(careful_quotient(Value(1, 2), infinite), Value(0, 0));
        const Value quotient = careful_quotient(infinite, Value(3, 4));
        EXPECT_TRUE(std::isinf(quotient.real()) || std::isinf(quotient.imag()));
    }
}

} // namespace
} // namespace Tessaline
