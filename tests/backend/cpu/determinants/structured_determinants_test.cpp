// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/determinant_scaling.h"
#include "backend/cpu/determinants/positive_definite_logdet.h"
#include "backend/cpu/determinants/signed_logdet.h"
#include "backend/cpu/determinants/structured_input.h"
#include "backend/cpu/lu/lu_problems.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/numbers/log_magnitude.h"
#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/quad.h"
#include "support/expect_error.h"

#include <numbers>

namespace Tessaline {

using namespace Testing;
using namespace CpuStructured;

namespace {

using Complex = std::complex<double>;
using Limits = std::numeric_limits<double>;

constexpr double epsilon = Limits::epsilon();
constexpr double smallest = Limits::denorm_min();

template <typename C>
class StructuredDeterminant : public ::testing::Test {};
using WorkingTypes = ::testing::Types<double, Complex>;
TYPED_TEST_SUITE(StructuredDeterminant, WorkingTypes);

template <typename C>
std::size_t order_of(const std::vector<C>& rows) {
    return static_cast<std::size_t>(std::lround(std::sqrt(static_cast<double>(rows.size()))));
}

template <typename C>
std::pair<C, double> signed_logdet_of(std::vector<C> rows) {
    return signed_logdet<C>(rows, order_of(rows));
}

template <typename C>
double positive_definite_logdet_of(const std::vector<C>& rows, int* reloads = nullptr) {
    auto copy = rows;
    const auto reload = [&] {
        copy = rows;
        if (reloads != nullptr) {
            ++*reloads;
        }
    };
    return positive_definite_logdet<C>(copy, order_of(rows), reload);
}

template <typename C>
double unrooted_logdet_of(std::vector<C> rows) {
    return unrooted_positive_definite_logdet<C>(rows, order_of(rows));
}

/// Expects a failure of `slogdet`, or of the way given, of `logdet_positive_definite`.
template <typename Call>
void expect_failed(const char* operation, const Call& call, int status, const std::string& detail,
                   const std::string& message) {
    expect_solver_error(call, status, detail, std::string("tessaline.") + operation, message,
                        ErrorReason::solver_failure);
}

/// The determinant of a matrix, and how far it moves when every element moves by one rounding: the
/// sum of |a_ij| times its minor, times epsilon.
template <typename C>
struct Reference {
    using Wide = std::conditional_t<is_complex_element<C>, QuadComplex, Quad>;

    explicit Reference(const std::vector<C>& rows) {
        const std::size_t order = order_of(rows);
        determinant = narrowed(quad_determinant<Wide>(rows, order));
        for (std::size_t place = 0; place < rows.size(); ++place) {
            std::vector<C> minor;
            for (std::size_t index = 0; index < rows.size(); ++index) {
                if (index / order != place / order && index % order != place % order) {
                    minor.push_back(rows[index]);
                }
            }
            const auto cofactor = narrowed(quad_determinant<Wide>(minor, order - 1));
            perturbation += epsilon * std::abs(Wider<C>(rows[place]) * cofactor);
        }
    }

    Wider<C> determinant;
    long double perturbation = 0;
};

/// What a sum of `order` logarithms, each below 80, and its exponential add to the error.
long double rounding_of_logarithms(std::size_t order) {
    const auto n = static_cast<long double>(order);
    return epsilon * 80 * n * (n + 1);
}

TYPED_TEST(StructuredDeterminant, SignAndLogarithmMatchExactDeterminants) {
    CounterRandom random(31);
    for (std::size_t order = 1; order <= 6; ++order) {
        for (int round = 0; round < 60; ++round) {
            // Small integers, singular ones among them, wide mantissas, and graded rows.
            const int kind = round % 3;
            auto rows = random_elements<TypeParam>(
                order * order, [&] { return kind == 0 ? integer(random, 2) : uniform(random); });
            for (std::size_t index = 0; kind == 2 && index < rows.size(); ++index) {
                rows[index] *= std::scalbn(1.0, 40 * static_cast<int>(index / order) - 100);
            }
            const Reference expected(rows);
            const auto [sign, logarithm] = signed_logdet_of(rows);
            const auto found = Wider<TypeParam>(sign) * std::exp<long double>(logarithm);
            const auto n = static_cast<long double>(order);
            // Elimination is exact for a matrix whose elements moved by n roundings, with growth up
            // to 2^(n-1) and twice that for complex products.
            EXPECT_LE(std::abs(found - expected.determinant),
                      n * std::exp2(n) * expected.perturbation +
                          std::abs(expected.determinant) * rounding_of_logarithms(order))
                << order << ", round " << round;
        }
    }
}

TYPED_TEST(StructuredDeterminant, KnownSignsAndLogarithms) {
    using C = TypeParam;
    const auto expect = [](const std::vector<C>& rows, C sign, double logarithm) {
        const auto found = signed_logdet_of(rows);
        EXPECT_EQ(found.first, sign);
        EXPECT_EQ(found.second, logarithm);
    };
    expect({}, 1, 0);
    expect({-4}, -1, std::log(4.0));
    expect({0, 1, 1, 0}, -1, 0);
    expect({0, 1, -1, 0}, 1, 0);
    expect({1, 2, 2, 4}, 0, -Limits::infinity());
    expect({0}, 0, -Limits::infinity());
    expect({smallest, 0, 0, smallest}, 1, 2 * std::log(smallest));
    // Magnitudes whose product leaves the range.
    expect({1e300, 0, 0, 1e300}, 1, 2 * std::log(1e300));
}

TYPED_TEST(StructuredDeterminant, SubnormalEntriesAreScaledByAnEvenPowerOfTwo) {
    using C = TypeParam;
    const auto shift_of = [](std::vector<C> rows) {
        const std::size_t order = order_of(rows);
        const auto original = rows;
        const double logarithm = normalise_determinant<C>(rows, order, "op");
        int exponent = 0;
        for (std::size_t index = 0; index < rows.size(); ++index) {
            if (original[index] != C(0)) {
                exponent =
                    std::ilogb(std::abs(rows[index])) - std::ilogb(std::abs(original[index]));
                EXPECT_EQ(NumberParts::scaled(rows[index], -exponent), original[index]);
            }
        }
        EXPECT_EQ(logarithm, static_cast<double>(order) * exponent * 0.6931471805599453);
        return exponent;
    };
    // ilogb(1e-320) = -1064: the smallest entry lands at 2^-968 or just above.
    EXPECT_EQ(shift_of({1e-320, 1, 1, 1}), 96);
    EXPECT_EQ(shift_of({smallest, 1, 1, 1}), 106);
    // All subnormal: the largest entry lands near 1.
    EXPECT_EQ(shift_of({smallest, 4 * smallest, smallest, 0}), 1072);
    if constexpr (is_complex_element<C>) {
        EXPECT_EQ(shift_of({C(0, 1), 1, 1, C(1, smallest)}), 106) << "parts count by themselves";
    }
    EXPECT_EQ(shift_of({Limits::min(), 1, 1, 1}), 0);
    EXPECT_EQ(shift_of({smallest, 0, 0, 1}), 0) << "diagonal";
    EXPECT_EQ(shift_of({smallest}), 0);
    EXPECT_EQ(shift_of({}), 0);
    std::vector<C> wide{1e-320, 1, 1, 1e300};
    expect_solver_error([&] { normalise_determinant<C>(wide, 2, "some.operation"); }, -1,
                        "determinant scaling would overflow", "some.operation",
                        "some.operation - subnormal factorisation range cannot be preserved",
                        ErrorReason::solver_failure);
    EXPECT_EQ(wide, (std::vector<C>{1e-320, 1, 1, 1e300}));
}

TYPED_TEST(StructuredDeterminant, SubnormalEntriesKeepTheirDigits) {
    const double tiny = 1e-320;
    const auto [sign, logarithm] = signed_logdet_of<TypeParam>({tiny, 1, 1, 1});
    EXPECT_EQ(sign, TypeParam(-1));
    // The shift is added to and taken from the logarithm.
    EXPECT_NEAR(logarithm, 0, 2 * 96 * std::numbers::ln2 * epsilon);
    // det = tiny - tiny^2 / tiny * ... : all four entries subnormal, exactly singular or not.
    const auto singular = signed_logdet_of<TypeParam>({tiny, tiny, tiny, tiny});
    EXPECT_EQ(singular.first, TypeParam(0));
    const auto regular = signed_logdet_of<TypeParam>({2 * tiny, tiny, tiny, tiny});
    EXPECT_EQ(regular.first, TypeParam(1));
    EXPECT_NEAR(regular.second, 2 * std::log(tiny), 2 * 1074 * epsilon);
}

TYPED_TEST(StructuredDeterminant, VanishingMultiplierAndOverflowAreErrors) {
    using C = TypeParam;
    const auto of = [](const std::vector<C>& rows) { return [=] { signed_logdet_of(rows); }; };
    expect_failed("slogdet", of({1e300, 1, 1e-300, 1}), -1, "LU multiplier underflow",
                  "slogdet - LU multiplier range cannot be preserved");
    expect_failed("slogdet", of({1e-320, 1, 1, 1e300}), -1, "determinant scaling would overflow",
                  "tessaline.slogdet - subnormal factorisation range cannot be preserved");
    expect_error<std::runtime_error>(of({1, 1.7e308, -1, 1.7e308}),
                                     "slogdet - non-finite LU pivot");
}

TEST(SlogdetComplex, PartOfAMultiplierThatDivisionLosesDecides) {
    // The multiplier is x - i 2^-54 / 10, and x times the last column cancels.
    const double x = (Complex(1, 1.0 / 3) / Complex(3, 1)).real();
    const auto [sign, logarithm] =
        signed_logdet_of<Complex>({Complex(3, 1), 0x1p60, Complex(1, 1.0 / 3), x * 0x1p60});
    const Complex expected = Complex(3, 1) * Complex(0, 6.4);
    EXPECT_LE(std::abs(sign - expected / std::abs(expected)), 4 * epsilon);
    EXPECT_NEAR(logarithm, std::log(std::abs(expected)), 8 * epsilon);
}

/// B B^* of an integer matrix B, exactly.
template <typename C>
std::vector<C> gram_matrix(std::size_t order, CounterRandom& random) {
    const auto B = random_elements<C>(order * order, [&] { return integer(random, 9); });
    std::vector<C> rows(order * order);
    for (std::size_t i = 0; i < order; ++i) {
        for (std::size_t j = 0; j < order; ++j) {
            for (std::size_t k = 0; k < order; ++k) {
                rows[i * order + j] += B[i * order + k] * conjugated(B[j * order + k]);
            }
        }
    }
    return rows;
}

TYPED_TEST(StructuredDeterminant, PositiveDefiniteLogarithmsMatchExactDeterminants) {
    CounterRandom random(33);
    for (std::size_t order = 1; order <= 6; ++order) {
        for (int round = 0; round < 40; ++round) {
            const auto rows = gram_matrix<TypeParam>(order, random);
            const Reference expected(rows);
            if (expected.determinant == Wider<TypeParam>(0)) {
                continue;
            }
            const long double determinant = std::abs(expected.determinant);
            // Cholesky does not grow: it is exact for elements that moved by n + 1 roundings.
            const long double bound =
                2 * static_cast<long double>(order + 1) * expected.perturbation / determinant +
                rounding_of_logarithms(order);
            int reloads = 0;
            EXPECT_LE(std::abs(positive_definite_logdet_of(rows, &reloads) - std::log(determinant)),
                      bound);
            EXPECT_EQ(reloads, 0);
            EXPECT_LE(std::abs(unrooted_logdet_of(rows) - std::log(determinant)), bound);
        }
    }
}

TYPED_TEST(StructuredDeterminant, PivotWithinRoundingOfZeroIsDecidedUnrooted) {
    using C = TypeParam;
    int reloads = 0;
    // 1 + 2^-52 - 1: one pivot is the last digit of the other.
    EXPECT_EQ(positive_definite_logdet_of<C>({1, 1, 1, 1 + epsilon}, &reloads), std::log(epsilon));
    EXPECT_EQ(reloads, 1);
    // (1 + 2^-30)^2 > 1 + 2^-29 by less than rounding can show.
    const std::vector<C> beyond{1, 1 + 0x1p-30, 1 + 0x1p-30, 1 + 0x1p-29};
    expect_failed(
        "logdet_positive_definite", [&] { positive_definite_logdet_of(beyond); }, 2,
        "non-positive unrooted pivot",
        "logdet_positive_definite - matrix is not positive definite at pivot 1");
    // One unit less off the diagonal, and the pivot is positive.
    const double off = 1 + 0x1p-30 - epsilon;
    const Quad pivot = Quad(1 + 0x1p-29) - Quad(off) * off;
    EXPECT_NEAR(positive_definite_logdet_of<C>({1, off, off, 1 + 0x1p-29}),
                std::log(static_cast<double>(pivot)), 36 * epsilon);
}

TYPED_TEST(StructuredDeterminant, PascalMatrixKeepsItsUnitDeterminant) {
    // Every Schur complement is an integer, so the unrooted way is exact where entries are; the
    // rooted way cannot tell the last pivots from zero.
    for (const std::size_t order : {5U, 20U, 28U}) {
        std::vector<TypeParam> rows(order * order, TypeParam(1));
        for (std::size_t i = 1; i < order; ++i) {
            for (std::size_t j = 1; j < order; ++j) {
                rows[i * order + j] = rows[(i - 1) * order + j] + rows[i * order + j - 1];
            }
        }
        EXPECT_EQ(unrooted_logdet_of(rows), 0) << order;
        int reloads = 0;
        EXPECT_EQ(positive_definite_logdet_of(rows, &reloads), 0) << order;
        EXPECT_EQ(reloads, order == 28 ? 1 : 0);
    }
}

TYPED_TEST(StructuredDeterminant, RangeOfThePositiveDefinitePaths) {
    using C = TypeParam;
    EXPECT_EQ(positive_definite_logdet_of<C>({}), 0);
    EXPECT_EQ(unrooted_logdet_of<C>({}), 0);
    EXPECT_EQ(positive_definite_logdet_of<C>({smallest, 0, 0, smallest}), 2 * std::log(smallest));
    EXPECT_EQ(unrooted_logdet_of<C>({1e300, 0, 0, 1e300}), 2 * std::log(1e300));
    // The upper triangle of the input does not count, not even where scaling is judged.
    EXPECT_EQ(positive_definite_logdet_of<C>({4, 99, 0, 4}), 2 * std::log(4.0));
    EXPECT_EQ(positive_definite_logdet_of<C>({1, smallest, 0, 1e300}), std::log(1e300));
    EXPECT_EQ(unrooted_logdet_of<C>({1, smallest, 0, 1e300}), std::log(1e300));
    const double scaled = positive_definite_logdet_of<C>({1, 1e-320, 1e-320, 1});
    EXPECT_NEAR(scaled, 0, 2 * 96 * std::numbers::ln2 * epsilon);

    const std::string pivot =
        "logdet_positive_definite - matrix is not positive definite at pivot ";
    const auto refused = [](const std::vector<C>& rows, int status, const char* detail,
                            const std::string& message) {
        expect_failed(
            "logdet_positive_definite", [&] { positive_definite_logdet_of(rows); }, status, detail,
            message);
    };
    refused({-1}, 1, "non-positive unrooted pivot", pivot + "0");
    refused({1, 0, 0, 0}, 2, "non-positive unrooted pivot", pivot + "1");
    refused({1, 2, 2, 1}, 2, "non-positive unrooted pivot", pivot + "1");
    refused({1, 1e200, 1e200, 1}, 2, "non-positive Cholesky pivot", pivot + "1");
    // The scaled column of the unrooted way would lose digits below the range.
    refused({0x1p1000, 0x1.8p-100, 0, 0x1.8p-100, 1, 1, 0, 1, 1}, -1,
            "unrepresentable unrooted scaling",
            "logdet_positive_definite - unrooted scaling range cannot be preserved");
    // A Schur complement off the diagonal overflows while its diagonal entries do not.
    const std::vector<C> overflowing{1, 1e150, 1e160, 1e150, 2e300, 0, 1e160, 0, 1};
    expect_failed(
        "logdet_positive_definite", [&] { unrooted_logdet_of(overflowing); }, -1,
        "unrepresentable unrooted scaling",
        "logdet_positive_definite - unrooted scaling range cannot be preserved");
    refused({1e-320, 1, 1, 1e300}, -1, "determinant scaling would overflow",
            "tessaline.logdet_positive_definite - subnormal factorisation range cannot be "
            "preserved");
}

/// signed_logdet() row by row, without scaling: for matrices that are not singular.
template <typename C>
std::pair<C, double> plain_signed_logdet(SquareMatrix<C> a) {
    C sign = 1;
    double total = 0;
    for (std::size_t k = 0; k < a.order; ++k) {
        std::size_t pivot = k;
        for (std::size_t row = k + 1; row < a.order; ++row) {
            pivot = NumberParts::largest_part(a(row, k)) > NumberParts::largest_part(a(pivot, k))
                        ? row
                        : pivot;
        }
        for (std::size_t j = 0; j < a.order && pivot != k; ++j) {
            std::swap(a(k, j), a(pivot, j));
        }
        sign = pivot == k ? sign : -sign;
        const C value = a(k, k);
        const C direction = NumberParts::divided(value, NumberParts::largest_part(value));
        sign *= NumberParts::divided(direction, std::abs(direction));
        total += log_magnitude(value);
        for (std::size_t row = k + 1; row < a.order; ++row) {
            const C multiplier = a(row, k) / value;
            for (std::size_t j = k + 1; j < a.order; ++j) {
                a(row, j) -= multiplier * a(k, j);
            }
        }
    }
    return {NumberParts::divided(sign, std::abs(sign)), total};
}

/// rooted_positive_definite_logdet() column by column, without scaling.
template <typename C>
std::optional<double> plain_rooted_logdet(SquareMatrix<C> a) {
    double total = 0;
    for (std::size_t k = 0; k < a.order; ++k) {
        const double diagonal = std::real(a(k, k));
        double pivot = diagonal;
        for (std::size_t j = 0; j < k; ++j) {
            pivot -= std::norm(a(k, j));
        }
        if (pivot <= (4 * static_cast<double>(k) + 1) * (std::abs(diagonal) * epsilon)) {
            return std::nullopt;
        }
        total += std::log(pivot);
        for (std::size_t row = k + 1; row < a.order; ++row) {
            for (std::size_t j = 0; j < k; ++j) {
                a(row, k) -= conjugated(a(k, j)) * a(row, j);
            }
            a(row, k) = NumberParts::divided(a(row, k), std::sqrt(pivot));
        }
    }
    return total;
}

TYPED_TEST(StructuredDeterminant, BlocksHaveTheBitsOfPlainLoops) {
    using C = TypeParam;
    CounterRandom random(8);
    for (const std::size_t n : {7, 8, 9, 16, 17, 33, 64, 65, 100}) {
        const auto A = make_matrix<C>(matrix_kinds[0], n, random);
        EXPECT_EQ(signed_logdet_of(A.elements), plain_signed_logdet(A)) << n;
        // Division scales where one part is zero and the other near the end of the range.
        auto with_tiny_row = A;
        for (std::size_t j = 0; j < n; ++j) {
            const double x = std::real(A(n - 1, j));
            const double tiny = std::copysign(1 + std::abs(x), x) * 0x1p-1021;
            if constexpr (is_complex_element<C>) {
                with_tiny_row(n - 1, j) = C(0, tiny);
            } else {
                with_tiny_row(n - 1, j) = tiny;
            }
        }
        EXPECT_EQ(signed_logdet_of(with_tiny_row.elements), plain_signed_logdet(with_tiny_row))
            << n;
        // From well inside the positive definite matrices to their edge.
        for (const double diagonal : {2.0 * static_cast<double>(n), 1.0}) {
            auto positive = A;
            for (std::size_t i = 0; i < n; ++i) {
                for (std::size_t j = 0; j < i; ++j) {
                    positive(i, j) = diagonal == 1 ? C(i + j < n ? 0.5 : 1) : A(i, j);
                }
                positive(i, i) = diagonal;
            }
            auto copy = positive.elements;
            EXPECT_EQ(rooted_positive_definite_logdet<C>(copy, n), plain_rooted_logdet(positive))
                << n << ", diagonal " << diagonal;
        }
    }
}

TEST(PositiveDefiniteComplex, PhasesOffTheDiagonalCancel) {
    const Complex off(3, 4);
    EXPECT_EQ(positive_definite_logdet_of<Complex>({1, std::conj(off), off, 26}), 0);
    EXPECT_EQ(unrooted_logdet_of<Complex>({1, std::conj(off), off, 26}), 0);
    // The imaginary part of a diagonal element is dropped.
    EXPECT_EQ(positive_definite_logdet_of<Complex>({Complex(4, 1)}), std::log(4.0));
}

TYPED_TEST(StructuredDeterminant, ValidateNamesTheFirstOffendingPair) {
    using C = TypeParam;
    constexpr bool hermitian = true;
    const auto check = [](const std::vector<C>& rows, bool is_hermitian, double tolerance,
                          const std::string& fault) {
        const auto call = [&] {
            validate<C>(rows, order_of(rows), is_hermitian, tolerance, "some.operation");
        };
        if (fault.empty()) {
            EXPECT_NO_THROW(call());
        } else {
            expect_error<std::invalid_argument>(call, "some.operation - input must " + fault);
        }
    };
    const std::string at = "be symmetric/Hermitian at ";
    const std::string finite = "contain only finite entries";
    check({}, hermitian, 0, "");
    check({1, 2, 3, 4}, !hermitian, 0, "");
    // Relative to the larger of a pair, whatever its scale.
    check({1, 1e-300, 1e-300 * (1 + 2 * epsilon), 1}, hermitian, 4 * epsilon, "");
    check({1, 0, 5, 0, 1, 2, 5, 2.5, 1}, hermitian, 0.1, at + "(2, 1)");
    check({1, 0, 4 * smallest, 1}, hermitian, 0.5, at + "(1, 0)");
    check({1, 0, Limits::infinity(), 1}, !hermitian, 0, finite);
    check({1, 0, Limits::quiet_NaN(), 1}, !hermitian, 0, finite);
    if constexpr (is_complex_element<C>) {
        check({1, C(2, 3), C(2, -3), 1}, hermitian, 0, "");
        check({1, C(2, 3), C(2, 3), 1}, hermitian, 0.1, at + "(1, 0)");
        check({C(1, 0.5)}, hermitian, 0.1, at + "(0, 0)");
    }
}

} // namespace

} // namespace Tessaline
