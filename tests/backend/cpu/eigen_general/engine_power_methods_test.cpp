// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/simd/kernels/engine_power_methods.h"

namespace Tessaline {
namespace {

using namespace Testing;

using Element = std::complex<float>;
using Matrix = SquareMatrix<Element>;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;
constexpr DataMatrixLayout column_major = DataMatrixLayout::column_major;

/// An engine without fused operations, or with them, whose row products are summed in order.
template <bool Fused>
struct Engine {
    static Element product(Element a, Element b) {
        if (Fused) {
            return {std::fma(-a.imag(), b.imag(), a.real() * b.real()),
                    std::fma(a.imag(), b.real(), a.real() * b.imag())};
        }
        return {a.real() * b.real() - a.imag() * b.imag(),
                a.real() * b.imag() + a.imag() * b.real()};
    }
    static void multiply_row(const float* row, const float* vector, std::uint64_t count,
                             float* result) {
        Element sum = 0;
        for (std::uint64_t k = 0; k < 2 * count; k += 2) {
            sum += product({row[k], row[k + 1]}, {vector[k], vector[k + 1]});
        }
        result[0] = sum.real();
        result[1] = sum.imag();
    }
};

template <typename Tested>
struct EnginePowerMethods : ::testing::Test {
    static std::vector<Element> principal_eigenvector(const Matrix& A,
                                                      DataMatrixLayout layout = row_major) {
        const auto stored =
            layout == row_major
                ? A
                : filled<Element>(A.order, [&](std::size_t i, std::size_t j) { return A(j, i); });
        std::vector<Element> vector(A.order, Element(-7, -7));
        Tessaline::EnginePowerMethods::principal_eigenvect<Tested>(
            {stored.elements.data(), A.order, A.order, layout}, {vector.data(), A.order});
        return vector;
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
        if (const float size = norm(v); size > std::numeric_limits<float>::epsilon()) {
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
    // The last step moved the iterate by less than 1e-5, that is by the norm of its residual over
    // |lambda|; |lambda| is at most half of what the residual is measured against. Products round.
    EXPECT_LE(pair_residual(A, rayleigh, x),
              1e-5 / 2 + 10 * double{std::numeric_limits<float>::epsilon()});
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
            EXPECT_NEAR(element.real(), c.expected,
                        c.expected * std::numeric_limits<float>::epsilon());
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

} // namespace
} // namespace Tessaline
