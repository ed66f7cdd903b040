// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/compensated_products.h"
#include "backend/cpu/exact_number.h"
#include "backend/cpu/log_magnitude.h"
#include "backend/cpu/quotient_range.h"
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
ExactNumber exact_sum(const Product (&products)[N]) {
    ExactNumber sum;
    for (const Product& product : products) {
        sum = sum + ExactNumber(product.x) * ExactNumber(product.y);
    }
    return sum;
}

/// Expects |result * divisor - sum| <= bound * |sum|.
void expect_quotient(double result, double divisor, const ExactNumber& sum, double bound) {
    const ExactNumber error = ExactNumber(result) * ExactNumber(divisor) - sum;
    EXPECT_TRUE(error.absolute() <= ExactNumber(bound) * sum.absolute())
        << "result " << result << " divisor " << divisor;
}

// The expansion's sum is within one unit in the last place, the division within half of one.
constexpr double quotient_bound = 1.5 * epsilon * (1 + epsilon);

TEST(SumDivided, RoundsTheExactSumOnce) {
    CounterRandom random(1);
    for (int round = 0; round < 4000; ++round) {
        SCOPED_TRACE(round);
        const int range = static_cast<int>(random.below(60));
        const auto draw = [&] { return spread(random, -range, range); };
        const double divisor = std::abs(draw()) + 0.25;
        const Product two[] = {{draw(), draw()}, {draw(), draw()}};
        expect_quotient(sum_divided(two, divisor, 0), divisor, exact_sum(two), quotient_bound);
        // The third product cancels what a rounded sum of the first two would keep.
        Product three[] = {two[0], two[1], {draw(), 1}};
        three[2].x = -(two[0].x * two[0].y + two[1].x * two[1].y);
        expect_quotient(sum_divided(three, divisor, 0), divisor, exact_sum(three), quotient_bound);
    }
}

TEST(SumDivided, ScalesByThePowerOfTwo) {
    EXPECT_EQ(sum_divided({{1e200, 1e200}, {-1e200, 1e200}}, 3, 0), 0);
    EXPECT_EQ(sum_divided({{0x1p900, 0x1p900}, {0x1p899, 0x1p900}}, 1, -1000), 0x1.8p800);
    EXPECT_EQ(sum_divided({{0x1p-900, 0x1p-900}, {0x1p-900, 0x1p-901}}, 1, 1000), 0x1.8p-800);
    EXPECT_EQ(sum_divided({{smallest, 1}, {smallest, 1}}, 1, 0), 2 * smallest);
    EXPECT_EQ(sum_divided({{0, 1e300}, {3, 5}, {-0.0, smallest}}, 2, 1), 15);
}

TEST(SumDivided, GivesNoNumberForWhatItCannotHold) {
    EXPECT_TRUE(std::isnan(sum_divided({{nan, 1}, {1, 1}}, 1, 0)));
    EXPECT_TRUE(std::isnan(sum_divided({{1, 1}, {0, infinity}}, 1, 0)));
    EXPECT_TRUE(std::isnan(sum_divided({{smallest, smallest}, {0, 1}}, 1, 0))) << "underflow";
    EXPECT_TRUE(std::isnan(sum_divided({{1, 1}, {1.0 / 3, 0x1p-1073}}, 1, 0)))
        << "no common exponent";
    EXPECT_EQ(sum_divided({{1e300, 1e300}, {0, 1}}, 1, 0), infinity);
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
        if (random.below(2) == 0) {
            const double wide = uniform(random);
            factors[0] = wide;
            factors[2] = -std::nextafter(wide, wide + static_cast<double>(random.below(2)));
            factors[3] = factors[1];
        }
        const int scale = 500 - static_cast<int>(random.below(1570));
        factors[0] = std::scalbn(factors[0], scale);
        factors[2] = std::scalbn(factors[2], scale);
        const auto& [a, b, c, d] = factors;
        const bool expected = exact_sum({{a, b}, {c, d}}).is_zero();
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
        SCOPED_TRACE(round);
        const auto d = random_element<std::complex<double>>([&] { return uniform(random); });
        // Nearly parallel to d or to i d, so that one part of the quotient cancels.
        const double factor = spread(random, -20, 20);
        std::complex<double> n(d.real() * factor, d.imag() * factor);
        if (round % 2 != 0) {
            n = {-n.imag(), n.real()};
        }
        std::complex<double> quotient = n / d;
        const auto rounded = quotient;
        recover_rounded_components(n, d, quotient);
        const ExactNumber squared = exact_sum({{d.real(), d.real()}, {d.imag(), d.imag()}});
        const ExactNumber sums[] = {exact_sum({{n.real(), d.real()}, {n.imag(), d.imag()}}),
                                    exact_sum({{n.imag(), d.real()}, {-n.real(), d.imag()}})};
        const double parts[] = {quotient.real(), quotient.imag()};
        const double before[] = {rounded.real(), rounded.imag()};
        for (int part = 0; part < 2; ++part) {
            if (std::abs(before[part]) > epsilon * std::abs(before[1 - part])) {
                EXPECT_EQ(parts[part], before[part]);
                continue;
            }
            ++recovered;
            const ExactNumber error = ExactNumber(parts[part]) * squared - sums[part];
            // Besides the quotient's bound, |d|^2 takes three roundings.
            EXPECT_TRUE(error.absolute() <=
                        ExactNumber(quotient_bound + 1.5 * epsilon) * sums[part].absolute());
        }
    }
    EXPECT_GT(recovered, 2000);
}

TEST(RecoverRoundedComponents, KeepsExactZerosAndWhatItCannotImprove) {
    struct Case {
        std::complex<double> numerator;
        std::complex<double> denominator;
        std::complex<double> quotient;
        std::complex<double> expected;
    };
    const Case cases[] = {
        {{6, 0}, {3, 0}, {2, -0.0}, {2, -0.0}},
        {{1, 2}, {2, 4}, {0.5, 0}, {0.5, 0}},
        {{0x1p-1000, 0}, {0x1p1000, 0x1p1000}, {0, 0}, {0, 0}},
        {{1, 0x1p-1074}, {1, 0}, {1, 0}, {1, 0x1p-1074}},
        {{0x1p1000, 1}, {0x1p1000, 0}, {1, 0}, {1, 0x1p-1000}},
    };
    for (const Case& row : cases) {
        std::complex<double> quotient = row.quotient;
        recover_rounded_components(row.numerator, row.denominator, quotient);
        EXPECT_EQ(quotient, row.expected) << row.numerator << " / " << row.denominator;
        EXPECT_EQ(std::signbit(quotient.imag()), std::signbit(row.expected.imag()));
    }
    std::complex<float> narrow(1, 0);
    recover_rounded_components({0x1p100F, 1}, {0x1p100F, 0}, narrow);
    EXPECT_EQ(narrow, std::complex<float>(1, 0x1p-100F));
}

TEST(Vanished, TellsUnderflowFromZero) {
    EXPECT_TRUE(QuotientRange::vanished(smallest, 4.0, 0.0));
    EXPECT_FALSE(QuotientRange::vanished(0.0, 4.0, 0.0));
    EXPECT_FALSE(QuotientRange::vanished(smallest, 1.0, smallest));
    using C = std::complex<double>;
    EXPECT_TRUE(QuotientRange::vanished(C(smallest, 0), C(4, 0), C(0, 0)));
    EXPECT_FALSE(QuotientRange::vanished(C(0, 0), C(4, 0), C(0, 0)));
    EXPECT_FALSE(QuotientRange::vanished(C(smallest, 1), C(4, 0), C(0, 0.25)));
}

template <typename Real>
void expect_log_magnitude(std::complex<Real> z, Real found) {
    const long double real = z.real();
    const long double imag = z.imag();
    const long double larger = std::max(std::abs(real), std::abs(imag));
    const long double smaller = std::min(std::abs(real), std::abs(imag));
    const long double square = smaller * smaller;
    const long double expected = larger >= 0.5L && larger <= 2
                                     ? std::log1p((larger - 1) * (larger + 1) + square) / 2
                                     : std::log(std::hypot(real, imag));
    // The square of the smaller part is rounded before it meets the rest, and the library's
    // logarithms are good to two units.
    const long double bound =
        std::numeric_limits<Real>::epsilon() * (2 * std::abs(expected) + square);
    EXPECT_LE(std::abs(found - expected), bound) << z;
}

template <typename Real>
void sweep_log_magnitude() {
    using Limits = std::numeric_limits<Real>;
    CounterRandom random(4);
    const auto check = [](Real real, Real imag) {
        const std::complex<Real> z(real, imag);
        expect_log_magnitude(z, CpuStructured::log_magnitude(z));
    };
    for (int round = 0; round < 4000; ++round) {
        const double angle = uniform(random) * std::numbers::pi;
        const double radius = 1 + spread(random, -40, 0);
        check(static_cast<Real>(radius * std::cos(angle)),
              static_cast<Real>(radius * std::sin(angle)));
        check(static_cast<Real>(spread(random, Limits::min_exponent, Limits::max_exponent - 1)),
              static_cast<Real>(spread(random, Limits::min_exponent, Limits::max_exponent - 1)));
    }
    check(Limits::max(), -Limits::max());
    check(Limits::denorm_min(), Limits::denorm_min());
    check(-Limits::min() / 2, Limits::min() / 4);
    // Two equal parts at the end of the range count as one logarithm and half of log 2.
    EXPECT_EQ(CpuStructured::log_magnitude(std::complex<Real>(Limits::max(), -Limits::max())),
              std::log(Limits::max()) + Real(0.5) * std::log(Real(2)));
    EXPECT_EQ(CpuStructured::log_magnitude(std::complex<Real>(0, -1)), 0);
    EXPECT_EQ(CpuStructured::log_magnitude(std::complex<Real>(0, 0)), -Limits::infinity());
    EXPECT_EQ(CpuStructured::log_magnitude(std::complex<Real>(-Limits::infinity(), 1)),
              Limits::infinity());
}

TEST(LogMagnitude, HoldsNearOneAndOverTheWholeRange) {
    sweep_log_magnitude<float>();
    sweep_log_magnitude<double>();
}

} // namespace

} // namespace Tessaline
