// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine_lu.h"
#include "backend/cpu/lu_problems.h"
#include "support/expect_error.h"

#include <bit>
#include <numbers>

namespace Tessaline {

using namespace Testing;

namespace {

using Complex = std::complex<float>;
using Storage = LuStorage<Complex>;

constexpr float infinity = std::numeric_limits<float>::infinity();
constexpr auto column_major = DataMatrixLayout::column_major;

/// An engine without or with fused operations.
template <typename Fused>
class EngineLuOf : public ::testing::Test {};
using Fusing = ::testing::Types<std::false_type, std::true_type>;
TYPED_TEST_SUITE(EngineLuOf, Fusing);

template <bool Fused>
Complex plain_product(Complex a, Complex b) {
    if constexpr (Fused) {
        const Complex fused(std::fma(-a.imag(), b.imag(), a.real() * b.real()),
                            std::fma(a.imag(), b.real(), a.real() * b.imag()));
        return std::isnan(fused.real()) && std::isnan(fused.imag()) ? a * b : fused;
    } else {
        return a * b;
    }
}

template <bool Fused>
struct Arithmetic {
    static Complex product(Complex a, Complex b) { return plain_product<Fused>(a, b); }
    static Complex multiplier(Complex a, Complex b) { return a / b; }
    static Complex quotient(Complex a, Complex b) { return a / b; }
};

/// A vector in two planes.
struct SplitVector {
    explicit SplitVector(const std::vector<Complex>& elements) {
        for (const Complex& element : elements) {
            real.push_back(element.real());
            imag.push_back(element.imag());
        }
    }
    DenseComplexSplitVectorView<float> view() { return {real.data(), imag.data(), real.size()}; }
    std::vector<Complex> elements() const {
        std::vector<Complex> result;
        for (std::size_t i = 0; i < real.size(); ++i) {
            result.emplace_back(real[i], imag[i]);
        }
        return result;
    }

    std::vector<float> real;
    std::vector<float> imag;
};

template <bool Fused>
Storage factored(const SquareMatrix<Complex>& matrix) {
    Storage lu(matrix, column_major);
    EngineLu::lu_decomp<Fused>(lu.view());
    return lu;
}

TYPED_TEST(EngineLuOf, FactorsAndSolutionsHaveTheBitsOfThePlainLoops) {
    CounterRandom random(21);
    for (const std::size_t order : lu_orders) {
        SCOPED_TRACE(order);
        const SquareMatrix<Complex> matrix{
            order, random_elements<Complex>(order * order, [&] { return uniform(random); })};
        const auto lu = factored<TypeParam::value>(matrix);
        using Plain = Arithmetic<TypeParam::value>;
        ASSERT_TRUE(
            same_bits(lu.matrix().elements, plain_factors<Plain>(matrix, lu.pivots).elements));
        const auto b = random_elements<Complex>(order, [&] { return uniform(random); });
        SplitVector x(b);
        EngineLu::solve<TypeParam::value>(lu.input(), x.view());
        EXPECT_TRUE(same_bits(x.elements(), plain_solution<Plain>(lu, b)));
    }
}

TYPED_TEST(EngineLuOf, ProductsRecoverInfinities) {
    constexpr float parts[] = {0,     -0.0F,    1,         -3e38F,
                               3e38F, infinity, -infinity, std::numeric_limits<float>::quiet_NaN()};
    const auto equal = [](float a, float b) {
        return (std::isnan(a) && std::isnan(b)) ||
               std::bit_cast<std::uint32_t>(a) == std::bit_cast<std::uint32_t>(b);
    };
    for (std::size_t index = 0; index < 8 * 8 * 8 * 8; ++index) {
        const Complex a(parts[index % 8], parts[index / 8 % 8]);
        const Complex b(parts[index / 64 % 8], parts[index / 512]);
        const EngineLu::ComplexFloat found =
            EngineLu::product<TypeParam::value>(*EngineLu::built_in(&a), *EngineLu::built_in(&b));
        const Complex expected = plain_product<TypeParam::value>(a, b);
        EXPECT_TRUE(equal(__real__ found, expected.real()) &&
                    equal(__imag__ found, expected.imag()))
            << a << " * " << b << " expected " << expected;
    }
}

TEST(EngineLu, FusingChangesBits) {
    CounterRandom random(22);
    const SquareMatrix<Complex> matrix{
        10, random_elements<Complex>(100, [&] { return uniform(random); })};
    EXPECT_FALSE(same_bits(factored<true>(matrix).factors, factored<false>(matrix).factors));
}

TYPED_TEST(EngineLuOf, PivotsAreOneBasedAndTheUpperOfEqualsWins) {
    const auto exchange = factored<TypeParam::value>({2, {0, 1, 1, 0}});
    EXPECT_EQ(exchange.pivots, (std::vector<long>{2, 2}));
    EXPECT_EQ(exchange.swaps, 1U);
    const auto equals = factored<TypeParam::value>({3, {1, 5, 0, Complex(0, 2), 1, 0, -2, 0, 1}});
    EXPECT_EQ(equals.pivots[0], 2);
}

TYPED_TEST(EngineLuOf, ColumnNotAboveTheThresholdIsSingular) {
    const auto refused = [](std::size_t order, const std::vector<Complex>& rows) {
        expect_solver_error(
            [&] {
                factored<TypeParam::value>({order, rows});
            },
            0, "singular matrix", "SimdEngine::lu_decomp",
            "SimdEngine::lu_decomp - singular matrix", ErrorReason::singular);
    };
    // 2^-23 is the square of no float; 2^-24 + 2^-24 has it as the sum of two squares.
    refused(1, {Complex(0x1p-12F, 0x1p-12F)});
    refused(2, {1, 0, 0, Complex(3.1e-4F, 0)});
    refused(2, {1, 0, 0, std::numeric_limits<float>::quiet_NaN()});
    EXPECT_EQ(factored<TypeParam::value>({1, {Complex(0x1p-12F, 0x1.000002p-12F)}}).pivots[0], 1);
    EXPECT_EQ(factored<TypeParam::value>({1, {infinity}}).pivots[0], 1);
}

TYPED_TEST(EngineLuOf, FailedSolveLeavesTheRightHandSide) {
    auto lu = factored<TypeParam::value>({2, {2, 1, 1, 2}});
    const std::vector<Complex> b{Complex(1, 2), 3};
    SplitVector x(b);
    const auto solve = [&] { EngineLu::solve<TypeParam::value>(lu.input(), x.view()); };

    SplitVector longer({1, 2, 3});
    expect_error<std::invalid_argument>(
        [&] { EngineLu::solve<TypeParam::value>(lu.input(), longer.view()); },
        "SimdEngine::solve - incompatible RHS size");
    for (const long pivot : {0L, 3L, -1L}) {
        lu.pivots[1] = pivot;
        expect_error<std::invalid_argument>(solve, "solve - invalid LU pivot");
    }
    lu.pivots[1] = 2;
    lu.factors[0] = 0;
    expect_solver_error(solve, 1, "zero LU pivot", "tessaline.lu_factor",
                        "LU factorisation - singular matrix at pivot 0", ErrorReason::singular);
    EXPECT_EQ(x.elements(), b);
}

TEST(EngineLu, LogdetAddsLogarithmsWithoutFolding) {
    constexpr float pi = std::numbers::pi_v<float>;
    const auto logdet = [](const Storage& lu) {
        Complex result;
        auto* parts = reinterpret_cast<float*>(&result);
        EngineLu::logdet(lu.input(), {&parts[0], &parts[1]});
        return result;
    };
    EXPECT_EQ(logdet(factored<false>({0, {}})), Complex(0, 0));
    EXPECT_EQ(logdet(factored<false>({2, {0, 1, 1, 0}})), Complex(0, pi));
    EXPECT_EQ(logdet(factored<false>({3, {-1, 0, 0, 0, -1, 0, 0, 0, -1}})),
              Complex(0, pi + pi + pi));

    CounterRandom random(23);
    Storage lu({33, random_elements<Complex>(33 * 33, [&] { return uniform(random); })},
               column_major);
    lu.swaps = 3;
    Complex expected;
    for (std::size_t i = 0; i < 33; ++i) {
        expected += std::log(lu.factors[lu.index(i, i)]);
    }
    expected += Complex(0, pi);
    EXPECT_EQ(logdet(lu), expected);
}

} // namespace

} // namespace Tessaline
