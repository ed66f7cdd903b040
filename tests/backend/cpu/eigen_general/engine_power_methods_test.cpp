// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/simd/simd_test_support.h"

namespace Tessaline {
namespace {

using namespace Testing;

using Element = std::complex<float>;
using Elements = std::vector<Element>;
using Matrix = SquareMatrix<Element>;

template <typename Engine>
Elements principal_eigenvector(Engine engine, const Matrix& A,
                               DataMatrixLayout layout = DataMatrixLayout::row_major) {
    const auto stored =
        layout == DataMatrixLayout::row_major
            ? A
            : filled<Element>(A.order, [&](std::size_t i, std::size_t j) { return A(j, i); });
    Elements vector(A.order, Element(-7, -7));
    engine.principal_eigenvect(DenseComplexIntlvMatrixView<const Element>{stored.elements.data(),
                                                                          A.order, A.order, layout},
                               DenseComplexIntlvVectorView<Element>{vector.data(), A.order});
    return vector;
}

float norm(const Elements& v) {
    float sum = 0;
    for (const Element element : v) {
        sum += element.real() * element.real() + element.imag() * element.imag();
    }
    return std::sqrt(sum);
}

/// The iteration with its own limits, as many times as it takes.
Elements plain_power_iteration(const PlainArithmetic& engine, const Matrix& A) {
    const auto scale = [](Elements& v) {
        if (const float size = norm(v); size > std::numeric_limits<float>::epsilon()) {
            for (Element& element : v) {
                element *= 1 / size;
            }
        }
    };
    Elements x(A.order, 1);
    scale(x);
    for (int iteration = 0; iteration < 512; ++iteration) {
        Elements y(A.order);
        Elements terms(A.order);
        for (std::size_t i = 0; i < A.order; ++i) {
            for (std::size_t j = 0; j < A.order; ++j) {
                terms[j] = engine.product(A(i, j), x[j]);
            }
            y[i] = engine.lane_sum(terms, engine.lanes);
        }
        scale(y);
        std::ranges::transform(y, x, x.begin(), std::minus());
        const bool has_converged = norm(x) < 1e-5F;
        x = y;
        if (has_converged) {
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

TEST(EnginePowerMethods, IterateWithTheBitsOfThePlainIteration) {
    for_each_engine([](auto engine) {
        for (const std::size_t n : {0, 1, 2, 3, 7, 8, 9, 15, 16, 17, 20, 24, 33, 50}) {
            for (const Element dominant :
                 {Element(1), Element(-1), Element(0.5F, 2), Element(1e-9F)}) {
                CounterRandom random(n);
                const auto A = with_dominant(n, random, dominant);
                const auto expected = plain_power_iteration(engine.plain, A);
                for (const auto layout :
                     {DataMatrixLayout::row_major, DataMatrixLayout::column_major}) {
                    EXPECT_TRUE(same_bits(principal_eigenvector(engine, A, layout), expected))
                        << n << dominant;
                }
            }
        }
    });
}

TEST(EnginePowerMethods, ConvergeToThePrincipalDirection) {
    for_each_engine([](auto engine) {
        CounterRandom random(1);
        const auto A = with_dominant(10, random, 1);
        const auto x = principal_eigenvector(engine, A);
        Element rayleigh = 0;
        for (std::size_t i = 0; i < 10; ++i) {
            for (std::size_t j = 0; j < 10; ++j) {
                rayleigh += std::conj(x[i]) * A(i, j) * x[j];
            }
        }
        // The last step moved the iterate by less than 1e-5, that is by the norm of its residual
        // over |lambda|; |lambda| is at most half of what the residual is measured against.
        // Products round.
        EXPECT_LE(pair_residual(A, rayleigh, x),
                  1e-5 / 2 + 10 * double{std::numeric_limits<float>::epsilon()});
    });
}

TEST(EnginePowerMethods, StopAtFixedPointsAndAtZero) {
    const float epsilon = std::numeric_limits<float>::epsilon();
    const float half = std::sqrt(0.5F);
    const struct {
        Matrix A;
        float expected; ///< of all elements
    } cases[] = {
        {{2, {1, 0, 0, 1}}, half},
        {{2, {0, 1, 1, 0}}, half},
        // The sign alternates, so the iteration ends at its limit, after an even number of rounds.
        {{2, {-1, 0, 0, -1}}, half},
        {{2, {0, 0, 0, 0}}, 0},
        // Nilpotent: the norm of the first iterate is not too small yet, the second one vanishes.
        {{2, {0, 1, 0, 0}}, 0},
        // The first round gives a vector of norm epsilon, which is not scaled, far from 1, and the
        // second one its square.
        {{1, {epsilon}}, epsilon * epsilon},
        {{1, {2 * epsilon}}, 1},
    };
    for_each_engine([&](auto engine) {
        for (const auto& [A, expected] : cases) {
            for (const Element element : principal_eigenvector(engine, A)) {
                EXPECT_NEAR(element.real(), expected, expected * epsilon);
                EXPECT_EQ(element.imag(), 0);
            }
        }
    });
}

} // namespace
} // namespace Tessaline
