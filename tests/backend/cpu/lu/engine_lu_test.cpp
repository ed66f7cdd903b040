// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/lu/lu_problems.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/simd/simd_test_support.h"

#include <algorithm>
#include <numbers>

namespace Tessaline {

using namespace Testing;

namespace {

using Storage = LuStorage<Complex>;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr float not_a_number = std::numeric_limits<float>::quiet_NaN();
constexpr auto column_major = DataMatrixLayout::column_major;

/// That of an engine, whose products recover infinities, and whose pivots are judged by the squares
/// of their magnitudes.
template <typename Engine>
struct Arithmetic {
    static constexpr float threshold = std::numeric_limits<float>::epsilon();

    static float size(Complex a) { return a.real() * a.real() + a.imag() * a.imag(); }
    static Complex product(Complex a, Complex b) {
        const Complex fast = Engine::plain.product(a, b);
        return std::isnan(fast.real()) && std::isnan(fast.imag()) ? a * b : fast;
    }
    static Complex quotient(Complex a, Complex b) { return a / b; }
    static Complex multiplier(Complex a, Complex b) { return a / b; }
};

void use_one_nan(std::vector<Complex>& elements) {
    std::ranges::transform(elements, elements.begin(), result_as<Complex>);
}

template <typename Engine>
Storage factored(Engine engine, const SquareMatrix<Complex>& matrix) {
    Storage lu(matrix, column_major);
    engine.lu_decomp(lu.view());
    return lu;
}

SquareMatrix<Complex> random_matrix(std::size_t order, CounterRandom& random,
                                    Values values = Values::ordinary) {
    SquareMatrix<Complex> matrix{order, {}};
    for (std::size_t i = 0; i < order * order; ++i) {
        matrix.elements.emplace_back(random_float(random, Values::ordinary),
                                     random_float(random, Values::ordinary));
    }
    for (std::size_t i = 0; i < order && values == Values::special; ++i) {
        Complex& element = matrix.elements[random.below(order * order)];
        element = {random_float(random, values), random_float(random, values)};
    }
    use_one_nan(matrix.elements); // elements that are only moved keep what NaN they hold
    return matrix;
}

constexpr std::size_t blocked_orders[] = {0, 1, 2, 3, 7, 8, 9, 16, 17, 33, 64, 100, 129};

TEST(EngineLu, FactorsHaveTheBitsOfPlainElimination) {
    for_each_engine([](auto engine) {
        CounterRandom random(21);
        std::size_t singular = 0;
        for (const std::size_t order : blocked_orders) {
            for (const int attempt : {0, 1, 2, 3, 4}) {
                SCOPED_TRACE(order);
                auto matrix =
                    random_matrix(order, random, attempt == 0 ? Values::ordinary : Values::special);
                for (std::size_t i = 0; i < order * order && attempt == 3; ++i) { // ties
                    matrix.elements[i] = matrix.elements[i].real() > 0 ? 1 : -1;
                }
                for (std::size_t i = 0; i < order && attempt == 4; ++i) {
                    matrix(i, order / 2) = i == 0 ? not_a_number : 0;
                }
                Storage found(matrix, column_major);
                Storage expected = found;
                const bool solvable = plain_elimination<Arithmetic<decltype(engine)>>(expected);
                try {
                    engine.lu_decomp(found.view());
                    EXPECT_TRUE(solvable);
                } catch (const SolverError&) {
                    EXPECT_FALSE(solvable);
                    ++singular;
                }
                use_one_nan(expected.factors);
                EXPECT_TRUE(same_bits(found.factors, expected.factors)) << attempt;
                EXPECT_EQ(found.pivots, expected.pivots);
                EXPECT_EQ(found.swaps, expected.swaps);
            }
        }
        EXPECT_GE(singular, std::size(blocked_orders) - 1);
        EXPECT_LT(singular, 3 * std::size(blocked_orders)) << "special elements end all";
    });
}

TEST(EngineLu, SolutionsHaveTheBitsOfPlainSubstitution) {
    for_each_engine([](auto engine) {
        CounterRandom random(22);
        for (const std::size_t order : blocked_orders) {
            for (const Values values : {Values::ordinary, Values::special}) {
                SCOPED_TRACE(order);
                const auto lu = factored(engine, random_matrix(order, random));
                auto x = split_data(order, 1, random, values);
                std::vector<Complex> b;
                for (std::size_t i = 0; i < order; ++i) {
                    b.push_back(x[i]);
                }
                const auto expected = plain_solution<Arithmetic<decltype(engine)>>(lu, b);
                engine.solve(lu.input(), x.output());
                expect_elements(x, [&](auto i) { return expected[i]; });
            }
        }
    });
}

TEST(EngineLu, ColumnNotAboveTheThresholdIsSingular) {
    for_each_engine([](auto engine) {
        const auto refused = [engine](std::size_t order, const std::vector<Complex>& rows) {
            expect_solver_error(
                [&] {
                    factored(engine, {order, rows});
                },
                0, "singular matrix", "SimdEngine::lu_decomp",
                "SimdEngine::lu_decomp - singular matrix", ErrorReason::singular);
        };
        // 2^-23 is the square of no float; 2^-24 + 2^-24 has it as the sum of two squares.
        refused(1, {Complex(0x1p-12F, 0x1p-12F)});
        refused(2, {1, 0, 0, Complex(3.1e-4F, 0)});
        refused(2, {1, 0, 0, not_a_number});
        const Complex just_above(0x1p-12F, 0x1.000002p-12F);
        EXPECT_EQ(factored(engine, {1, {just_above}}).pivots[0], 1);
        EXPECT_EQ(factored(engine, {1, {infinity}}).pivots[0], 1);
    });
}

TEST(EngineLu, FailedSolveLeavesTheRightHandSide) {
    for_each_engine([](auto engine) {
        auto lu = factored(engine, {2, {2, 1, 1, 2}});
        CounterRandom random(23);
        auto x = split_data(2, 0, random);
        const std::vector<Complex> b{x[0], x[1]};
        const auto solve = [&] { engine.solve(lu.input(), x.output()); };

        auto longer = split_data(3);
        expect_error<std::invalid_argument>([&] { engine.solve(lu.input(), longer.output()); },
                                            "SimdEngine::solve - incompatible RHS size");
        for (const long pivot : {0L, 3L, -1L}) {
            lu.pivots[1] = pivot;
            expect_error<std::invalid_argument>(solve, "solve - invalid LU pivot");
        }
        lu.pivots[1] = 2;
        lu.factors[0] = 0;
        expect_solver_error(solve, 1, "zero LU pivot", "tessaline.lu_factor",
                            "LU factorisation - singular matrix at pivot 0", ErrorReason::singular);
        expect_elements(x, [&](auto i) { return b[i]; });
    });
}

TEST(EngineLu, LogdetAddsLogarithmsWithoutFolding) {
    constexpr float pi = std::numbers::pi_v<float>;
    for_each_engine([](auto engine) {
        const auto logdet = [engine](const Storage& lu) {
            float parts[2] = {};
            engine.logdet(lu.input(), ComplexScalarView<float>{&parts[0], &parts[1]});
            return Complex(parts[0], parts[1]);
        };
        EXPECT_EQ(logdet(factored(engine, {0, {}})), Complex(0, 0));
        EXPECT_EQ(logdet(factored(engine, {2, {0, 1, 1, 0}})), Complex(0, pi));
        EXPECT_EQ(logdet(factored(engine, {3, {-1, 0, 0, 0, -1, 0, 0, 0, -1}})),
                  Complex(0, pi + pi + pi));

        CounterRandom random(24);
        Storage lu(random_matrix(33, random), column_major);
        lu.swaps = 3;
        Complex expected;
        for (std::size_t i = 0; i < 33; ++i) {
            expected += std::log(lu.factors[lu.index(i, i)]);
        }
        expected += Complex(0, pi);
        EXPECT_EQ(logdet(lu), expected);
    });
}

} // namespace

} // namespace Tessaline
