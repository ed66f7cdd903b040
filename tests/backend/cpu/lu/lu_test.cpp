// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/instruction_sets.h"
#include "backend/cpu/lu/factor.h"
#include "backend/cpu/lu/logdet.h"
#include "backend/cpu/lu/lu_problems.h"
#include "backend/cpu/lu/solve.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "support/expect_error.h"

#include <algorithm>
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

template <typename T>
struct Arithmetic {
    static constexpr Component<T> threshold = 0;

    static Component<T> size(T a) { return std::abs(a); }
    static T product(T a, T b) { return a * b; }
    static T quotient(T a, T b) {
        if constexpr (is_complex_element<T>) {
            return careful_quotient(a, b);
        } else {
            return a / b;
        }
    }
    static T multiplier(T a, T b) {
        T result = quotient(a, b);
        if constexpr (is_complex_element<T>) {
            QuotientRange::recover_rounded_components(a, b, result);
        }
        return result;
    }
};

// The loops run along the memory, whatever its order, and have the bits of plain ones.
TYPED_TEST(Lu, FactorsAndSolutionsHavePlainBits) {
    using T = TypeParam;
    CounterRandom random(11);
    for (const MatrixKind& kind : matrix_kinds) {
        for (const std::size_t order : lu_orders) {
            const auto A = make_matrix<T>(kind, order, random);
            const auto b =
                random_elements<T>(order, [&] { return uniform(random) * range_factor<T>(kind); });
            for (const DataMatrixLayout layout : both_orders) {
                SCOPED_TRACE(std::string(kind.name) + ", order " + std::to_string(order));
                LuStorage<T> lu(A, layout);
                LuStorage<T> expected = lu;
                CpuFallback::lu_factor(lu.view(), layout);
                EXPECT_TRUE(plain_elimination<Arithmetic<T>>(expected));
                EXPECT_TRUE(same_bits(lu.factors, expected.factors));
                EXPECT_EQ(lu.pivots, expected.pivots);
                EXPECT_EQ(lu.swaps, expected.swaps);
                auto x = b;
                CpuFallback::solve(lu.input(), layout, x.data());
                EXPECT_TRUE(same_bits(x, plain_solution<Arithmetic<T>>(lu, b)));
            }
        }
    }
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

/// Calls `body` with the kernels of each instruction set that the machine has.
template <typename T, typename Body>
void for_each_elimination(const Body& body) {
    for_each_instruction_set(
        SimdKernels::avx256_elimination_table, SimdKernels::avx512_elimination_table,
        [&](const SimdKernels::EliminationKernels<T>& kernels) { body(kernels); });
}

/// What an elimination leaves, with one NaN for all.
template <typename T>
struct Outcome {
    template <typename Factor>
    Outcome(const SquareMatrix<T>& A, DataMatrixLayout layout, const Factor& factor)
        : lu(A, layout) {
        try {
            factor(lu.view());
        } catch (const std::exception& raised) {
            error = raised.what();
        }
        std::ranges::transform(lu.factors, lu.factors.begin(), result_as<T>);
    }

    LuStorage<T> lu;
    std::string error;
};

/// Something that ends or bends an elimination, put into a random matrix at (row, column).
template <typename T>
struct Disturbance {
    const char* name;
    void (*put)(SquareMatrix<T>& A, std::size_t row, std::size_t column);
    const char* error; ///< raised at least once
};

template <typename T>
const Disturbance<T> disturbances[] = {
    {"nothing", [](auto&, auto, auto) {}, ""},
    {"ties",
     [](auto& A, auto, auto) {
         for (T& element : A.elements) {
             element = std::real(element) > 0 ? 1 : -1;
         }
     },
     ""},
    {"negative zeros",
     [](auto& A, auto, auto) {
         for (std::size_t i = 0; i < A.elements.size(); i += 3) {
             A.elements[i] = -T(0);
         }
     },
     ""},
    {"zero column",
     [](auto& A, auto, auto column) {
         for (std::size_t i = 0; i < A.order; ++i) {
             A(i, column) = 0;
         }
     },
     "singular"},
    {"not a number",
     [](auto& A, auto row, auto column) {
         A(row, column) = std::numeric_limits<Component<T>>::quiet_NaN();
     },
     "non-finite"},
    {"infinity",
     [](auto& A, auto row, auto column) {
         A(row, column) = -std::numeric_limits<Component<T>>::infinity();
     },
     "non-finite"},
    {"vanishing multiplier",
     [](auto& A, auto row, auto column) {
         for (std::size_t j = 0; j < column; ++j) {
             A(row, j) = 0;
         }
         A(row, column) = std::numeric_limits<Component<T>>::denorm_min();
     },
     "multiplier range"},
};

// Where an elimination ends early, blocks leave all that plain elimination leaves.
TYPED_TEST(Lu, BlocksEndLikePlainElimination) {
    using T = TypeParam;
    CounterRandom random(3);
    for (const auto& disturbance : disturbances<T>) {
        bool was_raised = false;
        for (const std::size_t order : {8, 9, 15, 16, 17, 31, 40, 63, 65, 100, 129}) {
            auto A = make_matrix<T>(matrix_kinds[0], order, random);
            for (T& element : A.elements) {
                element *= Component<T>(8);
            }
            const auto row = static_cast<std::size_t>(random.below(order));
            disturbance.put(A, row, static_cast<std::size_t>(random.below(row + 1)));
            for (const DataMatrixLayout layout : both_orders) {
                const Outcome<T> plain(A, layout,
                                       [&](auto lu) { CpuFallback::plain_lu_factor(lu, layout); });
                was_raised |= plain.error.find(disturbance.error) != std::string::npos;
                for_each_elimination<T>([&](const auto& kernels) {
                    SCOPED_TRACE(std::string(disturbance.name) + ", order " +
                                 std::to_string(order));
                    const Outcome<T> blocked(A, layout, [&](auto lu) {
                        CpuFallback::blocked_lu_factor(lu, layout, kernels);
                    });
                    EXPECT_EQ(blocked.error, plain.error);
                    EXPECT_EQ(blocked.lu.pivots, plain.lu.pivots);
                    EXPECT_EQ(blocked.lu.swaps, plain.lu.swaps);
                    EXPECT_TRUE(same_bits(blocked.lu.factors, plain.lu.factors));
                });
            }
        }
        EXPECT_TRUE(was_raised) << disturbance.name;
    }
}

TYPED_TEST(Lu, SubstitutionsByBlocksHavePlainBits) {
    using T = TypeParam;
    CounterRandom random(4);
    // More columns than there is room for products of the largest elements.
    const std::size_t many = sizeof(T) == 16 ? 2060 : 300;
    for (const std::size_t order : {std::size_t{1}, std::size_t{7}, std::size_t{8}, std::size_t{9},
                                    std::size_t{23}, std::size_t{64}, std::size_t{100}, many}) {
        // Small off the diagonal, so that a solution of many terms stays in the range.
        auto A = make_matrix<T>(matrix_kinds[0], order, random);
        for (std::size_t i = 0; i < order * order; ++i) {
            const bool on_diagonal = i % (order + 1) == 0;
            A.elements[i] = on_diagonal ? T(4) : A.elements[i] / Component<T>(64);
            A.elements[i] = i % 7 == 3 && !on_diagonal ? -T(0) : A.elements[i];
        }
        const CpuFallback::ColumnMajorFactors<const T> factors{A.elements.data(), order};
        auto turned = A.elements;
        transpose_in_place(turned.data(), order);
        const CpuFallback::RowMajorFactors<const T> plain_factors{turned.data(), order};
        // Nowhere, before a block, at its end, and where the backward direction begins.
        for (const std::size_t infinite : {order, std::size_t{0}, std::size_t{7}, order - 1}) {
            auto b = random_elements<T>(order, [&] { return uniform(random); });
            if (infinite < order) {
                // Products with an infinite and an undefined part recover.
                b[infinite] = std::numeric_limits<Component<T>>::infinity();
                if constexpr (is_complex_element<T>) {
                    b[infinite].imag(std::numeric_limits<Component<T>>::quiet_NaN());
                }
            }
            // Of several NaN any may be stored.
            const auto solution = [&](const auto& solve) {
                auto x = b;
                solve(x.data());
                std::ranges::transform(x, x.begin(), result_as<T>);
                return x;
            };
            const auto forward =
                solution([&](T* x) { CpuFallback::substitute_forward(plain_factors, x); });
            const auto backward =
                solution([&](T* x) { CpuFallback::substitute_backward(plain_factors, x); });
            for_each_elimination<T>([&](const auto& kernels) {
                SCOPED_TRACE(order);
                EXPECT_TRUE(same_bits(forward, solution([&](T* x) {
                                          CpuFallback::substitute_forward<const T, T>(factors, x,
                                                                                      kernels);
                                      })));
                EXPECT_TRUE(same_bits(backward, solution([&](T* x) {
                                          CpuFallback::substitute_backward<const T, T>(factors, x,
                                                                                       kernels);
                                      })));
            });
        }
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
    const auto lu = factored<C>(4, {std::numeric_limits<double>::max(), 0, 0, 0, C(huge, 0x1p1023),
                                    1, 0, 0, C(huge, -huge), 0, 1, 0, C(-huge, huge), 0, 0, 1});
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
    using C = std::complex<double>;
    constexpr std::size_t order = 64;
    constexpr long double pi = std::numbers::pi_v<long double>;
    CounterRandom random(14);
    LuStorage<C> lu({order, std::vector<C>(order * order)}, DataMatrixLayout::row_major);
    lu.swaps = 1;
    std::complex<long double> expected(0, pi);
    for (std::size_t i = 0; i < order; ++i) {
        const auto u = random_element<C>([&] { return spread(random, -1000, 1000); });
        lu.factors[lu.index(i, i)] = u;
        expected += std::log(Wider<C>(u));
    }
    const auto result = CpuFallback::logdet(lu.input());
    // Each term and partial sum is rounded, and no term exceeds 700.
    EXPECT_LE(std::abs(result.real() - expected.real()),
              order * (700 * order) * 2 * unit_roundoff<C>);
    EXPECT_LE(std::abs(result.imag()), std::numbers::pi);
    const long double turns = (result.imag() - expected.imag()) / (2 * pi);
    // Four roundings a factor, and those of the argument.
    EXPECT_LE(std::abs(turns - std::round(turns)), (4 * order + 1) * unit_roundoff<C>);
}

} // namespace

} // namespace Tessaline
