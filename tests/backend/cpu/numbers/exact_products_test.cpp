// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/numbers/compensated_products.h"
#include "backend/cpu/numbers/log_magnitude.h"
#include "backend/cpu/numbers/quotient_range.h"
#include "backend/cpu/quad.h"
#include "backend/cpu/random_values.h"

#include <gtest/gtest.h>

#include <limits>
#include <numbers>

namespace Tessaline {

using namespace Testing;
using CompensatedProducts::Product;
using CompensatedProducts::sum_divided;
using QuotientRange::products_cancel;
using QuotientRange::recover_rounded_components;

namespace {

constexpr double epsilon = std::numeric_limits<double>::epsilon();
constexpr double infinity = std::numeric_limits<double>::infinity();
constexpr double nan = std::numeric_limits<double>::quiet_NaN();
constexpr double smallest = std::numeric_limits<double>::denorm_min();

template <std::size_t N>
Quad quad_sum(const Product (&products)[N]) {
    Quad sum = 0;
    for (const Product& product : products) {
        sum += Quad(product.x) * product.y;
    }
    return sum;
}

/// |found * divisor - sum|, in units of |sum| epsilon.
double error_of(double found, Quad divisor, Quad sum) {
    const Quad error = (found * divisor - sum) / (sum * epsilon);
    return std::abs(static_cast<double>(error));
}

// The expansion's sum is within one unit in the last place, the division within half of one; the
// judge's own error stays below the rest.
constexpr double quotient_bound = 1.51;

TEST(SumDivided, RoundsTheExactSumOnce) {
    CounterRandom random(1);
    for (int round = 0; round < 4000; ++round) {
        const auto draw = [&](int range) { return spread(random, -range, range); };
        const double divisor = std::abs(draw(60)) + 0.25;
        const Product apart[] = {{draw(60), draw(60)}, {draw(60), draw(60)}};
        ASSERT_LE(error_of(sum_divided(apart, divisor, 0), divisor, quad_sum(apart)),
                  quotient_bound);
        // The third product cancels what a rounded sum of the first two would keep. All bits of the
        // three lie within 110 of each other.
        Product close[] = {{draw(1), draw(1)}, {draw(1), draw(1)}, {0, 1}};
        close[2].x = -(close[0].x * close[0].y + close[1].x * close[1].y);
        ASSERT_LE(error_of(sum_divided(close, divisor, 0), divisor, quad_sum(close)),
                  quotient_bound)
            << round;
    }
}

TEST(SumDivided, ScalesByPowersOfTwoAndGivesNoNumberForWhatItCannotHold) {
    EXPECT_EQ(sum_divided({{1e200, 1e200}, {-1e200, 1e200}}, 3, 0), 0);
    EXPECT_EQ(sum_divided({{0x1p900, 0x1p900}, {0x1p899, 0x1p900}}, 1, -1000), 0x1.8p800);
    EXPECT_EQ(sum_divided({{0x1p-900, 0x1p-900}, {0x1p-900, 0x1p-901}}, 1, 1000), 0x1.8p-800);
    EXPECT_EQ(sum_divided({{smallest, 1}, {smallest, 1}}, 1, 0), 2 * smallest);
    EXPECT_EQ(sum_divided({{0, 1e300}, {3, 5}, {-0.0, smallest}}, 2, 1), 15);
    EXPECT_EQ(sum_divided({{1e300, 1e300}, {0, 1}}, 1, 0), infinity);
    EXPECT_TRUE(std::isnan(sum_divided({{nan, 1}, {1, 1}}, 1, 0)));
    EXPECT_TRUE(std::isnan(sum_divided({{1, 1}, {0, infinity}}, 1, 0)));
    EXPECT_TRUE(std::isnan(sum_divided({{smallest, smallest}, {0, 1}}, 1, 0))) << "underflow";
    EXPECT_TRUE(std::isnan(sum_divided({{1, 1}, {1.0 / 3, 0x1p-1073}}, 1, 0)))
        << "no common exponent";
}

TEST(ProductsCancel, AgreesWithExactArithmetic) {
    CounterRandom random(2);
    int cancelling = 0;
    for (int round = 0; round < 20000; ++round) {
        double factors[4];
        for (double& factor : factors) {
            // Few bits, so that equal products of different factors are common.
            factor = std::scalbn(integer(random, 12), static_cast<int>(random.below(3)));
        }
        auto& [a, b, c, d] = factors;
        if (random.below(2) == 0) {
            a = uniform(random);
            c = -std::nextafter(a, a + static_cast<double>(random.below(2)));
            d = b;
        }
        const int scale = 500 - static_cast<int>(random.below(1570));
        a = std::scalbn(a, scale);
        c = std::scalbn(c, scale);
        const bool expected = quad_sum({{a, b}, {c, d}}) == 0;
        cancelling += expected ? 1 : 0;
        ASSERT_EQ(products_cancel(a, b, c, d), expected)
            << a << " * " << b << " + " << c << " * " << d;
    }
    EXPECT_GT(cancelling, 1000);
}

TEST(RecoverRoundedComponents, ComputesLostPartsExactly) {
    CounterRandom random(3);
    int recovered = 0;
    for (int round = 0; round < 4000; ++round) {
        const auto d = random_element<std::complex<double>>([&] { return uniform(random); });
        // Nearly parallel to d or to i d, so that one part of the quotient cancels.
        const auto along = d * spread(random, -20, 20);
        const auto n = round % 2 == 0 ? along : std::complex(-along.imag(), along.real());
        const auto rounded = n / d;
        auto quotient = rounded;
        recover_rounded_components(n, d, quotient);
        const Quad squared = quad_sum({{d.real(), d.real()}, {d.imag(), d.imag()}});
        const auto check = [&](double part, double before, double other, Quad sum) {
            if (std::abs(before) > epsilon * std::abs(other)) {
                EXPECT_EQ(part, before);
            } else if (sum != 0) {
                ++recovered;
                // Besides the quotient's bound, |d|^2 takes three roundings.
                EXPECT_LE(error_of(part, squared, sum), quotient_bound + 1.5) << n << " / " << d;
            }
        };
        check(quotient.real(), rounded.real(), rounded.imag(),
              quad_sum({{n.real(), d.real()}, {n.imag(), d.imag()}}));
        check(quotient.imag(), rounded.imag(), rounded.real(),
              quad_sum({{n.imag(), d.real()}, {-n.real(), d.imag()}}));
    }
    EXPECT_GT(recovered, 2000);
}

TEST(RecoverRoundedComponents, KeepsExactZerosAndWhatItCannotImprove) {
    using C = std::complex<double>;
    struct Case {
        C numerator;
        C denominator;
        C quotient;
        C expected;
    };
    const Case cases[] = {
        {6, 3, {2, -0.0}, {2, -0.0}},
        {{1, 2}, {2, 4}, {0.5, 0}, {0.5, 0}},
        {0x1p-1000, {0x1p1000, 0x1p1000}, 0, 0},
        {{1, 0x1p-1074}, 1, 1, {1, 0x1p-1074}},
        {{0x1p1000, 1}, 0x1p1000, 1, {1, 0x1p-1000}},
    };
    for (const Case& row : cases) {
        C quotient = row.quotient;
        recover_rounded_components(row.numerator, row.denominator, quotient);
        EXPECT_EQ(quotient, row.expected) << row.numerator << " / " << row.denominator;
        EXPECT_EQ(std::signbit(quotient.imag()), std::signbit(row.expected.imag()));
    }
    std::complex<float> narrow(1, 0);
    recover_rounded_components({0x1p100F, 1}, {0x1p100F, 0}, narrow);
    EXPECT_EQ(narrow, std::complex<float>(1, 0x1p-100F));
}

template <typename Real>
void sweep_log_magnitude() {
    using Limits = std::numeric_limits<Real>;
    CounterRandom random(4);
    const auto check = [](double x, double y) {
        const std::complex<Real> z(static_cast<Real>(x), static_cast<Real>(y));
        const long double larger = std::max(std::abs(z.real()), std::abs(z.imag()));
        const long double smaller = std::min(std::abs(z.real()), std::abs(z.imag()));
        const long double square = smaller * smaller;
        const long double expected = larger >= 0.5L && larger <= 2
                                         ? std::log1p((larger - 1) * (larger + 1) + square) / 2
                                         : std::log(std::hypot<long double>(z.real(), z.imag()));
        // The square of the smaller part is rounded before it meets the rest, and the library's
        // logarithms are good to two units.
        EXPECT_LE(std::abs(CpuStructured::log_magnitude(z) - expected),
                  Limits::epsilon() * (2 * std::abs(expected) + square))
            << z;
    };
    const auto anywhere = [&] { return spread(random, Limits::min_exponent, 127); };
    for (int round = 0; round < 4000; ++round) {
        const auto near_one =
            std::polar(1 + spread(random, -40, 0), uniform(random) * std::numbers::pi);
        check(near_one.real(), near_one.imag());
        check(anywhere(), anywhere());
    }
    check(Limits::denorm_min(), Limits::denorm_min());
    check(-Limits::min() / 2, Limits::min() / 4);
    const auto log_of = [](Real x, Real y) { return CpuStructured::log_magnitude<Real>({x, y}); };
    // Two equal parts at the end of the range count as one logarithm and half of log 2.
    EXPECT_EQ(log_of(Limits::max(), -Limits::max()),
              std::log(Limits::max()) + Real(0.5) * std::log(Real(2)));
    EXPECT_EQ(log_of(0, -1), 0);
    EXPECT_EQ(log_of(0, 0), -Limits::infinity());
    EXPECT_EQ(log_of(-Limits::infinity(), 1), Limits::infinity());
}

TEST(LogMagnitude, HoldsNearOneAndOverTheWholeRange) {
    sweep_log_magnitude<float>();
    sweep_log_magnitude<double>();
}

} // namespace

} // namespace Tessaline
