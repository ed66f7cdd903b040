// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_test_matrices.h"
#include "backend/cpu/fallback_complex_eigen_solver.h"
#include "backend/cpu/solver_failure.h"
#include "support/expect_error.h"

#include <gmock/gmock.h>

#include <bit>
#include <numbers>

namespace Tessaline {
namespace {

using namespace Testing;
using CpuFallback::EigenvalueScale;
using ::testing::Each;

template <typename T>
using Pairs = HostEigenVals<std::complex<T>, std::complex<T>>;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;

template <typename T>
void solve(const std::vector<std::complex<T>>& elements, Pairs<T>& pairs,
           DataMatrixLayout layout = row_major,
           EigenvalueScale scale = EigenvalueScale::original) {
    CpuFallback::solve_complex_eigen<T>({elements.data(), pairs.size(), pairs.size(), layout},
                                        pairs, scale);
}

template <typename T>
std::vector<std::complex<T>> stored(const SquareMatrix<>& A) {
    return {A.elements.begin(), A.elements.end()};
}

template <typename T>
std::vector<Complex> values_of(const Pairs<T>& pairs) {
    return {pairs.eigenvalues(), pairs.eigenvalues() + pairs.size()};
}

template <typename T>
std::vector<std::complex<T>> vector_of(const Pairs<T>& pairs, std::size_t k) {
    const auto* first = pairs.eigenvectors() + k * pairs.size();
    return {first, first + pairs.size()};
}

/// A kind of matrix. `largest` and `smallest` are powers of two from the ends of the normal range
/// of the element type.
struct Family {
    const char* name;
    SquareMatrix<> (*make)(std::size_t n, CounterRandom& random, double largest, double smallest);
};

SquareMatrix<> scaled_random(std::size_t n, CounterRandom& random, double factor) {
    auto A = random_matrix<Complex>(n, random);
    for (Complex& element : A.elements) {
        element *= factor;
    }
    return A;
}

/// Rows and columns scaled by powers of two from 1 to 2^-60, against each other: what balancing
/// undoes.
SquareMatrix<> badly_balanced(std::size_t n, CounterRandom& random, double, double) {
    auto A = random_matrix<Complex>(n, random);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            const auto steps = 60 * (static_cast<int>(j) - static_cast<int>(i));
            A(i, j) *= std::exp2(steps / static_cast<int>(n));
        }
    }
    return A;
}

SquareMatrix<> graded(std::size_t n, CounterRandom& random, double, double) {
    auto A = random_matrix<Complex>(n, random);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < n; ++j) {
            A(i, j) *= std::exp2(-static_cast<double>(i + j));
        }
    }
    return A;
}

/// Eigenvalues in three clusters of the width of a few rounding errors.
SquareMatrix<> clustered(std::size_t n, CounterRandom& random, double, double) {
    std::vector<Complex> diagonal(n);
    for (std::size_t i = 0; i < n; ++i) {
        const double nearly_one = 1 + 1e-15 * static_cast<double>(i);
        diagonal[i] = Complex(static_cast<double>(i % 3), 1) * nearly_one;
    }
    return conjugated_by(random_unitary<Complex>(n, random), diagonal_matrix(diagonal));
}

/// Jordan blocks of order 3 in random coordinates.
SquareMatrix<> defective(std::size_t n, CounterRandom& random, double, double) {
    const SquareMatrix<> J(n, [](std::size_t i, std::size_t j) {
        return i == j ? static_cast<double>(1 + i / 3) : (i + 1 == j && j % 3 != 0 ? 1.0 : 0.0);
    });
    return conjugated_by(random_unitary<Complex>(n, random), J);
}

SquareMatrix<> normal(std::size_t n, CounterRandom& random, double, double) {
    const auto diagonal = random_elements<Complex>(n, [&] { return uniform(random); });
    return conjugated_by(random_unitary<Complex>(n, random), diagonal_matrix(diagonal));
}

SquareMatrix<> triangle(std::size_t n, CounterRandom& random, bool upper) {
    auto A = random_matrix<Complex>(n, random);
    for (std::size_t i = 0; i < n; ++i) {
        for (std::size_t j = 0; j < i; ++j) {
            (upper ? A(i, j) : A(j, i)) = 0;
        }
    }
    return A;
}

SquareMatrix<> permutation(std::size_t n, CounterRandom& random, double, double) {
    std::vector<std::size_t> images(n);
    std::iota(images.begin(), images.end(), std::size_t{0});
    random.shuffle(images);
    return {n, [&](std::size_t i, std::size_t j) { return images[i] == j ? 1.0 : 0.0; }};
}

const Family families[] = {
    {"random", [](std::size_t n, CounterRandom& random, double, double) {
         return random_matrix<Complex>(n, random);
     }},
    {"real", [](std::size_t n, CounterRandom& random, double, double) {
         return SquareMatrix<>(n, [&](std::size_t, std::size_t) { return uniform(random); });
     }},
    {"hermitian", [](std::size_t n, CounterRandom& random, double, double) {
         return hermitian_part(random_matrix<Complex>(n, random));
     }},
    {"near overflow", [](std::size_t n, CounterRandom& random, double largest, double) {
         return scaled_random(n, random, largest / (2.0 * static_cast<double>(n)));
     }},
    {"near underflow", [](std::size_t n, CounterRandom& random, double, double smallest) {
         return scaled_random(n, random, smallest * 0x1p30);
     }},
    {"badly balanced", badly_balanced},
    {"graded", graded},
    {"clustered", clustered},
    {"defective", defective},
    {"normal", normal},
    {"upper triangular", [](std::size_t n, CounterRandom& random, double, double) {
         return triangle(n, random, true);
     }},
    {"lower triangular", [](std::size_t n, CounterRandom& random, double, double) {
         return triangle(n, random, false);
     }},
    {"permutation", permutation},
    {"second difference", [](std::size_t n, CounterRandom&, double, double) {
         return second_difference_matrix<Complex>(n);
     }},
    {"zero", [](std::size_t n, CounterRandom&, double, double) { return SquareMatrix<>(n); }},
};

constexpr std::size_t orders[] = {0, 1, 2, 3, 5, 10, 33, 64};

template <typename T>
struct ComplexEigenSolver : ::testing::Test {};
using StoredReals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ComplexEigenSolver, StoredReals);

TYPED_TEST(ComplexEigenSolver, ReturnsPairsOfUnitVectorsWithSmallResiduals) {
    using Limits = std::numeric_limits<TypeParam>;
    const double epsilon = Limits::epsilon();
    for (const Family& family : families) {
        for (const std::size_t n : orders) {
            CounterRandom random(n);
            const auto elements = stored<TypeParam>(
                family.make(n, random, std::exp2(Limits::max_exponent - 1), Limits::min()));
            const SquareMatrix<std::complex<TypeParam>> A(
                n, [&](std::size_t i, std::size_t j) { return elements[i * n + j]; });
            Pairs<TypeParam> pairs(n);
            solve(elements, pairs);
            double worst=0;
            for (std::size_t k = 0; k < n; ++k) {
                const auto v = vector_of(pairs, k);
                EXPECT_NEAR(static_cast<double>(frobenius_norm(v)), 1, 2 * epsilon);
                worst=std::max<double>(worst,residual(A, LongComplex(pairs.eigenvalues()[k]), v));
            }
            printf("%s %zu %.3f\n", family.name,n,worst/(static_cast<double>(n)*epsilon));
        }
    }
}

} // namespace
} // namespace Tessaline
