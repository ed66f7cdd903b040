// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_test_matrices.h"
#include "backend/cpu/engine_plain_kernels.h"
#include "backend/cpu/engine_power_methods.h"
#include "support/expect_error.h"

namespace Tessaline {
namespace {

using namespace Testing;

using Element = std::complex<float>;
using Matrix = SquareMatrix<Element>;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;
constexpr DataMatrixLayout column_major = DataMatrixLayout::column_major;

/// The engine without and the one with fused operations.
template <bool Value>
struct Engine {
    static constexpr bool is_fused = Value;
    using Kernels = EnginePlainKernels<Value>;

    static Element product(Element a, Element b) {
        if (is_fused) {
            return {std::fma(-a.imag(), b.imag(), a.real() * b.real()),
                    std::fma(a.imag(), b.real(), a.real() * b.imag())};
        }
        return {a.real() * b.real() - a.imag() * b.imag(),
                a.real() * b.imag() + a.imag() * b.real()};
    }
    static Element sum_with_product(Element sum, Element a, Element b) {
        if (is_fused) {
            return {std::fma(-a.imag(), b.imag(), std::fma(a.real(), b.real(), sum.real())),
                    std::fma(a.imag(), b.real(), std::fma(a.real(), b.imag(), sum.imag()))};
        }
        return sum + product(a, b);
    }
};

template <typename Tested>
struct EnginePowerMethods : ::testing::Test {
    using Kernels = typename Tested::Kernels;

    static std::vector<Element> principal_eigenvector(const Matrix& A,
                                                      DataMatrixLayout layout = row_major) {
        const auto stored =
            layout == row_major
                ? A
                : filled<Element>(A.order, [&](std::size_t i, std::size_t j) { return A(j, i); });
        std::vector<Element> vector(A.order, Element(-7, -7));
        Tessaline::EnginePowerMethods::principal_eigenvect<Kernels>(
            {stored.elements.data(), A.order, A.order, layout}, {vector.data(), A.order});
        return vector;
    }

    static Matrix power(const Matrix& A, std::uint32_t exponent) {
        const std::size_t n = A.order;
        std::vector<float> in(2 * n * n);
        std::vector<float> out(2 * n * n, -7);
        for (std::size_t i = 0; i < n * n; ++i) {
            in[i] = A.elements[i].real();
            in[n * n + i] = A.elements[i].imag();
        }
        Tessaline::EnginePowerMethods::matrix_power<Kernels>(
            {in.data(), in.data() + n * n, n, n, row_major},
            {out.data(), out.data() + n * n, n, n, row_major}, exponent);
        return filled<Element>(n, [&](std::size_t i, std::size_t j) {
            return Element(out[i * n + j], out[n * n + i * n + j]);
        });
    }

    static Matrix product(const Matrix& A, const Matrix& B) {
        return filled<Element>(A.order, [&](std::size_t i, std::size_t j) {
            Element sum = 0;
            for (std::size_t k = 0; k < A.order; ++k) {
                sum = Tested::sum_with_product(sum, A(i, k), B(k, j));
            }
            return sum;
        });
    }
};
using Engines = ::testing::Types<Engine<false>, Engine<true>>;
TYPED_TEST_SUITE(EnginePowerMethods, Engines);

float norm(const std::vector<Element>& v) {
    float sum = 0;
    for (const Element element : v) {
        sum += element.real() * element.real() + element.imag() * element.imag();
    }
    return std::sqrt(sum);
}

/// The iteration with its own limits, as many times as it takes.
template <typename Tested>
std::vector<Element> plain_power_iteration(const Matrix& A) {
    const auto scale = [](std::vector<Element>& v) {
        if (const float size = norm(v); size > 1.1920929e-07F) {
            for (Element& element : v) {
                element *= 1 / size;
            }
        }
    };
    std::vector<Element> x(A.order, 1);
    scale(x);
    for (int iteration = 0; iteration < 512; ++iteration) {
        std::vector<Element> y(A.order);
        std::vector<Element> difference(A.order);
        for (std::size_t i = 0; i < A.order; ++i) {
            for (std::size_t j = 0; j < A.order; ++j) {
                y[i] += Tested::product(A(i, j), x[j]);
            }
        }
        scale(y);
        for (std::size_t i = 0; i < A.order; ++i) {
            difference[i] = y[i] - x[i];
        }
        x = y;
        if (norm(difference) < 1e-5F) {
            break;
        }
    }
    return x;
}

/// Random with a dominant eigenvalue near `dominant`: converging, rotating for ever, or vanishing.
Matrix with_dominant(std::size_t n, CounterRandom& random, Element dominant) {
    auto A = random_matrix<Element>(n, random);
    for (Element& element : A.elements) {
        element = element * 0.5F + dominant;
    }
    return A;
}

TYPED_TEST(EnginePowerMethods, IterateWithTheBitsOfThePlainIteration) {
    for (const std::size_t n : eigen_orders) {
        for (const Element dominant : {Element(1), Element(-1), Element(0.5F, 2), Element(1e-9F)}) {
            CounterRandom random(n);
            const auto A = with_dominant(n, random, dominant);
            const auto expected = plain_power_iteration<TypeParam>(A);
            EXPECT_TRUE(same_bits(this->principal_eigenvector(A), expected)) << n << dominant;
            EXPECT_TRUE(same_bits(this->principal_eigenvector(A, column_major), expected))
                << n << dominant;
        }
    }
}

TYPED_TEST(EnginePowerMethods, ConvergeToThePrincipalDirection) {
    CounterRandom random(1);
    const auto A = with_dominant(10, random, 1);
    const auto x = this->principal_eigenvector(A);
    Element rayleigh = 0;
    for (std::size_t i = 0; i < 10; ++i) {
        for (std::size_t j = 0; j < 10; ++j) {
            rayleigh += std::conj(x[i]) * A(i, j) * x[j];
        }
    }
    // The last step moved the iterate by less than 1e-5, that is by the residual over |lambda|.
    EXPECT_LE(pair_residual(A, rayleigh, x), 2e-5);
}

TYPED_TEST(EnginePowerMethods, StopAtFixedPointsAndAtZero) {
    struct Case {
        Matrix A;
        float expected; // of both elements
    };
    const float half = std::sqrt(0.5F);
    const Case cases[] = {
        {{2, {1, 0, 0, 1}}, half},
        {{2, {0, 1, 1, 0}}, half},
        // The sign alternates, so the iteration ends at its limit, after an even number of rounds.
        {{2, {-1, 0, 0, -1}}, half},
        {{2, {0, 0, 0, 0}}, 0},
        // Nilpotent: the norm of the first iterate is not too small yet, the second one vanishes.
        {{2, {0, 1, 0, 0}}, 0},
    };
    for (const Case& c : cases) {
        for (const Element element : this->principal_eigenvector(c.A)) {
            EXPECT_NEAR(element.real(), c.expected, c.expected * 1.2e-7F);
            EXPECT_EQ(element.imag(), 0);
        }
    }
}

TYPED_TEST(EnginePowerMethods, LeaveVectorsOfBreakdownNormUnscaled) {
    // The first round gives a vector of norm FLT_EPSILON, far from 1, the second one its square.
    const float epsilon = std::numeric_limits<float>::epsilon();
    EXPECT_EQ(this->principal_eigenvector({1, {epsilon}}), std::vector<Element>{epsilon * epsilon});
    EXPECT_EQ(this->principal_eigenvector({1, {2 * epsilon}}), std::vector<Element>{1});
}

TYPED_TEST(EnginePowerMethods, RaiseToPowersByTheSameProductsInTheSameOrder) {
    for (const std::size_t n : eigen_orders) {
        CounterRandom random(n);
        auto A = random_matrix<Element>(n, random);
        for (Element& element : A.elements) {
            element /= std::sqrt(static_cast<float>(n));
        }
        const auto identity = filled<Element>(n, [](auto i, auto j) { return i == j; });
        const auto square = this->product(A, A);
        const auto fourth = this->product(square, square);
        const auto times = [](const Matrix& left, const Matrix& right) {
            return TestFixture::product(left, right);
        };
        const std::pair<std::uint32_t, Matrix> expected[] = {
            {0, identity},
            {1, A},
            {2, times(identity, square)},
            {3, times(times(identity, A), square)},
            {4, times(identity, fourth)},
            {5, times(times(identity, A), fourth)},
            {6, times(times(identity, square), fourth)},
            {7, times(times(times(identity, A), square), fourth)}};
        for (const auto& [exponent, power] : expected) {
            EXPECT_TRUE(same_bits(this->power(A, exponent).elements, power.elements))
                << "power " << exponent << ", order " << n;
        }
    }
}

TYPED_TEST(EnginePowerMethods, TakeTheExponentAsUnsigned) {
    // The largest exponent is odd: the sign stays.
    EXPECT_EQ(this->power({1, {-1}}, ~std::uint32_t{0}).elements, std::vector<Element>{-1});
    EXPECT_EQ(this->power({1, {-1}}, std::uint32_t{1} << 31U).elements, std::vector<Element>{1});
}

// The identity is a factor like any other, and the engines recover no infinity.
TYPED_TEST(EnginePowerMethods, SpreadNumbersThatAreNotFiniteFromPowerTwoOn) {
    const float infinity = std::numeric_limits<float>::infinity();
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Matrix A{2, {nan, infinity, 1, 1}};
    EXPECT_EQ(this->power(A, 0).elements, (std::vector<Element>{1, 0, 0, 1}));
    EXPECT_TRUE(same_bits(this->power(A, 1).elements, A.elements));
    for (const Element element : this->power(A, 2).elements) {
        EXPECT_TRUE(std::isnan(element.real()) && std::isnan(element.imag())) << element;
    }
}

TYPED_TEST(EnginePowerMethods, RefuseShapesThatDiffer) {
    std::vector<float> data(100);
    for (const auto& [rows, cols, result_rows, result_cols] :
         {std::array<std::size_t, 4>{2, 3, 2, 2}, {2, 2, 3, 2}, {2, 2, 2, 3}, {2, 2, 3, 3}}) {
        expect_error<std::invalid_argument>(
            [&, shape = std::array{rows, cols, result_rows, result_cols}] {
                Tessaline::EnginePowerMethods::matrix_power<typename TypeParam::Kernels>(
                    {data.data(), data.data() + 50, shape[0], shape[1], row_major},
                    {data.data(), data.data() + 50, shape[2], shape[3], row_major}, 0);
            },
            "SimdEngine::matrix_power - incompatible shapes");
    }
}

// The engines differ in products, and only there.
TEST(EnginePlainKernels, FuseTheSecondProductOfEachPart) {
    const float a = 1 + 0x1p-12F; // its square is 1 + 2^-11 + 2^-24, rounded to 1 + 2^-11
    float real = 0;
    float imag = 0;
    EngineArithmetic<false>::multiply(a, a, a, a, real, imag);
    EXPECT_EQ(real, 0);
    EngineArithmetic<true>::multiply(a, a, a, a, real, imag);
    EXPECT_EQ(real, -0x1p-24F);
    real = -1;
    EngineArithmetic<false>::multiply_add(a, 0, a, 0, real, imag);
    EXPECT_EQ(real, 0x1p-11F);
    real = -1;
    EngineArithmetic<true>::multiply_add(a, 0, a, 0, real, imag);
    EXPECT_EQ(real, 0x1p-11F + 0x1p-24F);
}

} // namespace
} // namespace Tessaline
