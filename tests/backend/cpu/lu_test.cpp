// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/factor.h"
#include "backend/cpu/logdet.h"
#include "backend/cpu/lu_problems.h"
#include "backend/cpu/solve.h"
#include "support/expect_error.h"

#include <numbers>

namespace Tessaline {

using namespace Testing;

namespace {

constexpr DataMatrixLayout both_orders[] = {DataMatrixLayout::row_major,
                                            DataMatrixLayout::column_major};

template <typename T>
class Lu : public ::testing::Test {};
using LuTypes = ::testing::Types<float, double, std::complex<float>, std::complex<double>>;
TYPED_TEST_SUITE(Lu, LuTypes);

/// Calls `check` for a matrix of every kind, order and element order.
template <typename T, typename Check>
void for_each_problem(Check&& check) {
    CounterRandom random(11);
    for (const MatrixKind& kind : matrix_kinds) {
        for (const std::size_t order : lu_orders) {
            const auto matrix = make_matrix<T>(kind, order, random);
            for (const DataMatrixLayout layout : both_orders) {
                SCOPED_TRACE(std::string(kind.name) + ", order " + std::to_string(order));
                check(matrix, layout);
            }
        }
    }
}

/// P A - L U in wider precision.
template <typename T>
SquareMatrix<Wider<T>> factor_residual(const SquareMatrix<T>& A, const LuStorage<T>& lu) {
    SquareMatrix<Wider<T>> residual{A.order, {A.elements.begin(), A.elements.end()}};
    for (std::size_t k = 0; k < A.order; ++k) {
        const auto pivot = static_cast<std::size_t>(lu.pivots[k] - 1);
        for (std::size_t j = 0; j < A.order; ++j) {
            std::swap(residual(k, j), residual(pivot, j));
        }
    }
    const auto factors = lu.matrix();
    for (std::size_t i = 0; i < A.order; ++i) {
        for (std::size_t j = 0; j < A.order; ++j) {
            for (std::size_t k = 0; k <= std::min(i, j); ++k) {
                const Wider<T> lower = k == i ? Wider<T>(1) : Wider<T>(factors(i, k));
                residual(i, j) -= lower * Wider<T>(factors(k, j));
            }
        }
    }
    return residual;
}

TYPED_TEST(Lu, FactorsHaveSmallResiduals) {
    for_each_problem<TypeParam>([](const auto& matrix, DataMatrixLayout layout) {
        LuStorage<TypeParam> lu(matrix, layout);
        CpuFallback::lu_factor(lu.view(), layout);
        std::uint64_t swaps = 0;
        for (std::size_t k = 0; k < lu.order; ++k) {
            swaps += lu.pivots[k] != static_cast<long>(k + 1) ? 1U : 0U;
        }
        EXPECT_EQ(lu.swaps, swaps);
        const auto unit =
            static_cast<long double>(lu.order) * one_norm(matrix) * unit_roundoff<TypeParam>;
        EXPECT_LE(one_norm(factor_residual(matrix, lu)), 3 * unit);
    });
}

TYPED_TEST(Lu, SolutionsHaveSmallResiduals) {
    CounterRandom random(12);
    for_each_problem<TypeParam>([&](const auto& matrix, DataMatrixLayout layout) {
        using W = Wider<TypeParam>;
        LuStorage<TypeParam> lu(matrix, layout);
        CpuFallback::lu_factor(lu.view(), layout);
        const auto scale =
            static_cast<double>(one_norm(matrix) / (static_cast<long double>(lu.order) + 1));
        const auto b =
            random_elements<TypeParam>(lu.order, [&] { return scale * uniform(random); });
        auto x = b;
        CpuFallback::solve(lu.input(), layout, x.data());
        long double residual = 0;
        long double x_norm = 0;
        for (std::size_t i = 0; i < lu.order; ++i) {
            W difference = W(b[i]);
            for (std::size_t j = 0; j < lu.order; ++j) {
                difference -= W(matrix(i, j)) * W(x[j]);
            }
            residual += std::abs(difference);
            x_norm += std::abs(W(x[i]));
        }
        const auto unit = static_cast<long double>(lu.order) * one_norm(matrix) * x_norm *
                          unit_roundoff<TypeParam>;
        EXPECT_LE(residual, 10 * unit);
    });
}

/// The elimination as its definition reads: row by row, one element after another.
template <typename T>
std::size_t plain_elimination_step(SquareMatrix<T>& a, std::size_t k) {
    for (std::size_t row = k + 1; row < a.order; ++row) {
        T multiplier;
        if constexpr (is_complex_element<T>) {
            multiplier = careful_quotient(a(row, k), a(k, k));
            QuotientRange::recover_rounded_components(a(row, k), a(k, k), multiplier);
        } else {
            multiplier = a(row, k) / a(k, k);
        }
        if (a(row, k) != T(0) && multiplier == T(0)) {
            return row;
        }
        a(row, k) = multiplier;
        for (std::size_t column = k + 1; column < a.order; ++column) {
            a(row, column) -= multiplier * a(k, column);
        }
    }
    return a.order;
}

/// The factors that `lu` was given the pivots of, by plain elimination up to the first multiplier
/// that vanishes.
template <typename T>
SquareMatrix<T> plain_factors(SquareMatrix<T> a, const std::vector<long>& pivots) {
    for (std::size_t k = 0; k < a.order; ++k) {
        for (std::size_t j = 0; j < a.order; ++j) {
            std::swap(a(k, j), a(static_cast<std::size_t>(pivots[k] - 1), j));
        }
        if (plain_elimination_step(a, k) != a.order) {
            break;
        }
    }
    return a;
}

TYPED_TEST(Lu, FactorsHaveTheBitsOfPlainElimination) {
    for_each_problem<TypeParam>([](const auto& matrix, DataMatrixLayout layout) {
        LuStorage<TypeParam> lu(matrix, layout);
        CpuFallback::lu_factor(lu.view(), layout);
        EXPECT_TRUE(same_bits(lu.matrix().elements, plain_factors(matrix, lu.pivots).elements));
    });
}

TYPED_TEST(Lu, SolutionsHaveTheBitsOfPlainSubstitution) {
    CounterRandom random(13);
    for_each_problem<TypeParam>([&](const auto& matrix, DataMatrixLayout layout) {
        LuStorage<TypeParam> lu(matrix, layout);
        CpuFallback::lu_factor(lu.view(), layout);
        auto x = random_elements<TypeParam>(lu.order, [&] { return uniform(random); });
        auto expected = x;
        CpuFallback::solve(lu.input(), layout, x.data());
        const auto factors = lu.matrix();
        for (std::size_t i = 0; i < lu.order; ++i) {
            std::swap(expected[i], expected[static_cast<std::size_t>(lu.pivots[i] - 1)]);
        }
        for (std::size_t i = 0; i < lu.order; ++i) {
            for (std::size_t j = 0; j < i; ++j) {
                expected[i] -= factors(i, j) * expected[j];
            }
        }
        for (std::size_t i = lu.order; i-- > 0;) {
            for (std::size_t j = i + 1; j < lu.order; ++j) {
                expected[i] -= factors(i, j) * expected[j];
            }
            if constexpr (is_complex_element<TypeParam>) {
                expected[i] = careful_quotient(expected[i], factors(i, i));
            } else {
                expected[i] /= factors(i, i);
            }
        }
        EXPECT_TRUE(same_bits(x, expected));
    });
}

template <typename T>
LuStorage<T> factored(std::size_t order, const std::vector<T>& rows,
                      DataMatrixLayout layout = DataMatrixLayout::column_major) {
    LuStorage<T> lu(SquareMatrix<T>{order, rows}, layout);
    CpuFallback::lu_factor(lu.view(), layout);
    return lu;
}

TYPED_TEST(Lu, PivotsAreOneBasedAndTheUpperOfEqualsWins) {
    const auto exchange = factored<TypeParam>(2, {0, 1, 1, 0});
    EXPECT_EQ(exchange.pivots, (std::vector<long>{2, 2}));
    EXPECT_EQ(exchange.swaps, 1U);
    // -2 and 2 are equal; row 2 is the first of them.
    const auto equals = factored<TypeParam>(3, {1, 5, 0, -2, 1, 0, 2, 0, 1});
    EXPECT_EQ(equals.pivots, (std::vector<long>{2, 2, 3}));
}

TYPED_TEST(Lu, ExactZeroPivotIsSingularAndATinyOneIsNot) {
    for (const DataMatrixLayout layout : both_orders) {
        // Elimination leaves a zero column at k = 1.
        LuStorage<TypeParam> lu(SquareMatrix<TypeParam>{3, {1, 2, 3, 2, 4, 5, 1, 2, 7}}, layout);
        expect_solver_error([&] { CpuFallback::lu_factor(lu.view(), layout); }, 2, "zero LU pivot",
                            "tessaline.lu_factor", "LU factorisation - singular matrix at pivot 1",
                            ErrorReason::singular);
        // The first column is finished, the rest as its elimination left it.
        EXPECT_EQ(lu.matrix().elements,
                  (std::vector<TypeParam>{2, 4, 5, 0.5, 0, 0.5, 0.5, 0, 4.5}));
        EXPECT_EQ(lu.pivots, (std::vector<long>{2, -7, -7}));
        EXPECT_EQ(lu.swaps, 1U);
    }
    using Real = Component<TypeParam>;
    const auto tiny = factored<TypeParam>(1, {std::numeric_limits<Real>::denorm_min()});
    EXPECT_EQ(tiny.pivots[0], 1);
}

TYPED_TEST(Lu, NonFinitePivotCandidateIsRefused) {
    using Real = Component<TypeParam>;
    using Limits = std::numeric_limits<Real>;
    const auto refused = [](const std::vector<TypeParam>& rows) {
        expect_error<std::invalid_argument>([&] { factored<TypeParam>(2, rows); },
                                            "LU factorisation - non-finite pivot");
    };
    refused({1, 0, Limits::quiet_NaN(), 1});
    refused({-Limits::infinity(), 0, 1, 1});
    // Overflow of the last diagonal element.
    refused({1, Limits::max(), -1, Limits::max()});
}

TYPED_TEST(Lu, VanishingMultiplierStopsElimination) {
    using Real = Component<TypeParam>;
    const TypeParam tiny = std::numeric_limits<Real>::denorm_min();
    const SquareMatrix<TypeParam> matrix{4, {8, 1, 2, 4, 2, 3, 1, 0, tiny, 1, 1, 1, 4, 4, 4, 4}};
    for (const DataMatrixLayout layout : both_orders) {
        LuStorage<TypeParam> lu(matrix, layout);
        expect_solver_error([&] { CpuFallback::lu_factor(lu.view(), layout); }, -1,
                            "LU multiplier underflow", "tessaline.lu_factor",
                            "LU multiplier range cannot be preserved", ErrorReason::solver_failure);
        // Rows above the failing one are eliminated, that one and those below are untouched.
        EXPECT_EQ(lu.matrix().elements, (std::vector<TypeParam>{8, 1, 2, 4, 0.25, 2.75, 0.5, -1,
                                                                tiny, 1, 1, 1, 4, 4, 4, 4}));
    }
}

TEST(LuComplex, PartsThatCancelOrRoundAwayAreNoUnderflow) {
    using C = std::complex<double>;
    // A multiplier of one part: the other is exactly zero.
    const auto cancelled = factored<C>(2, {C(2, 2), 1, C(1, 1), 1});
    EXPECT_EQ(cancelled.factors[1], C(0.5, 0));
    // The imaginary part of the multiplier is far below the real one and yet kept.
    const auto kept = factored<C>(2, {2, 1, C(1, 0x1p-900), 1});
    EXPECT_EQ(kept.factors[1], C(0.5, 0x1p-901));
    // 3 (1 / 3) falls short of 1 by 2^-54, which division loses beside the real part.
    const auto recovered = factored<C>(2, {C(3, 1), 1, C(1, 1.0 / 3), 1});
    EXPECT_EQ(recovered.factors[1].imag(), -0x1p-54 / 10);
}

TEST(LuComplex, PivotBeyondTheRangeOfMagnitudesWins) {
    using C = std::complex<double>;
    constexpr double huge = 0x1.8p1023;
    // |huge + i huge| overflows, the largest real number does not.
    const std::vector<C> column{std::numeric_limits<double>::max(), C(huge, 0x1p1023),
                                C(huge, -huge), C(-huge, huge)};
    SquareMatrix<C> matrix{4, std::vector<C>(16)};
    for (std::size_t i = 0; i < 4; ++i) {
        matrix(i, 0) = column[i];
        matrix(i, i) += i == 0 ? 0.0 : 1.0;
    }
    LuStorage<C> lu(matrix, DataMatrixLayout::column_major);
    CpuFallback::lu_factor(lu.view(), lu.layout);
    EXPECT_EQ(lu.pivots[0], 3);
}

TEST(LuPivots, RowThatThePivotTypeCannotNumberOverflows) {
    SquareMatrix<float> matrix{128, std::vector<float>(128 * 128)};
    matrix(127, 0) = 1;
    LuStorage<float, std::int8_t> lu(matrix, DataMatrixLayout::row_major);
    expect_error<std::overflow_error>([&] { CpuFallback::lu_factor(lu.view(), lu.layout); },
                                      "size exceeds destination integer range");
    EXPECT_TRUE(same_bits(lu.factors, matrix.elements));
}

TYPED_TEST(Lu, SolveRefusesPivotsThatNumberNoRow) {
    for (const long pivot : {0L, 3L, -1L}) {
        auto lu = factored<TypeParam>(2, {4, 1, 1, 4});
        lu.pivots[1] = pivot;
        std::vector<TypeParam> b{1, 2};
        expect_error<std::invalid_argument>(
            [&] { CpuFallback::solve(lu.input(), lu.layout, b.data()); },
            "solve - invalid LU pivot");
    }
}

TYPED_TEST(Lu, SolveStopsAtTheLowestZeroOfTheDiagonal) {
    for (const DataMatrixLayout layout : both_orders) {
        LuStorage<TypeParam> lu(SquareMatrix<TypeParam>{3, {0, 1, 1, 1, 0, 1, 1, 1, 2}}, layout);
        lu.pivots = {1, 2, 3};
        std::vector<TypeParam> b{1, 2, 8};
        expect_solver_error([&] { CpuFallback::solve(lu.input(), layout, b.data()); }, 2,
                            "zero LU pivot", "tessaline.lu_factor",
                            "LU factorisation - singular matrix at pivot 1", ErrorReason::singular);
        // Forward substitution is complete, and the last element solved.
        EXPECT_EQ(b, (std::vector<TypeParam>{1, 1, 3}));
    }
}

template <typename T>
std::complex<Component<T>> logdet_of(std::size_t order, const std::vector<T>& rows) {
    return CpuFallback::logdet(factored<T>(order, rows).input());
}

TYPED_TEST(Lu, LogdetCountsSwapsAndSigns) {
    using Real = Component<TypeParam>;
    constexpr Real pi = std::numbers::pi_v<Real>;
    EXPECT_EQ(logdet_of<TypeParam>(0, {}), std::complex<Real>(0, 0));
    EXPECT_EQ(logdet_of<TypeParam>(2, {0, 1, 1, 0}), std::complex<Real>(0, pi));
    EXPECT_EQ(logdet_of<TypeParam>(2, {0, 1, -1, 0}), std::complex<Real>(0, 0));
    EXPECT_EQ(logdet_of<TypeParam>(2, {2, 0, 0, 4}),
              std::complex<Real>(std::log(Real(2)) + std::log(Real(4)), 0));
}

TEST(LuReal, LogdetTakesTheSignBitOfAZero) {
    LuStorage<double> lu(SquareMatrix<double>{2, {-0.0, 0, 0, 1}}, DataMatrixLayout::row_major);
    lu.swaps = 0;
    const auto result = CpuFallback::logdet(lu.input());
    EXPECT_EQ(result.real(), -std::numeric_limits<double>::infinity());
    EXPECT_EQ(result.imag(), std::numbers::pi);
}

TEST(LuComplex, LogdetFoldsThePhaseOfALongDiagonal) {
    CounterRandom random(14);
    for (const std::size_t order : lu_orders) {
        LuStorage<std::complex<double>> lu(
            {order, std::vector<std::complex<double>>(order * order)}, DataMatrixLayout::row_major);
        lu.swaps = order % 2;
        long double logarithm = 0;
        long double turns = order % 2 == 0 ? 0 : 0.5L;
        for (std::size_t i = 0; i < order; ++i) {
            const auto diagonal =
                random_element<std::complex<double>>([&] { return spread(random, -1000, 1000); });
            lu.factors[i * order + i] = diagonal;
            logarithm += std::log(std::hypot<long double>(diagonal.real(), diagonal.imag()));
            turns += std::atan2<long double>(diagonal.imag(), diagonal.real()) /
                     (2 * std::numbers::pi_v<long double>);
        }
        const auto result = CpuFallback::logdet(lu.input());
        const auto terms = static_cast<long double>(order);
        // Each term and each partial sum is rounded; sums stay below 700 a term.
        EXPECT_LE(std::abs(result.real() - logarithm),
                  terms * (700 * terms) * 2 * unit_roundoff<double>);
        EXPECT_LE(std::abs(result.imag()), std::numbers::pi);
        const long double difference = result.imag() / (2 * std::numbers::pi_v<long double>)-turns;
        // Four roundings a factor, and those of the argument.
        EXPECT_LE(std::abs(difference - std::round(difference)),
                  (4 * terms + 1) * unit_roundoff<double>);
    }
}

} // namespace

} // namespace Tessaline
