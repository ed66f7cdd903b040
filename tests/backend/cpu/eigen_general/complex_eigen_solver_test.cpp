// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "support/expect_error.h"

#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using namespace Testing;
using CpuFallback::EigenvalueScale;
using ::testing::ElementsAre;
using Complex = std::complex<double>;

using Matrix = SquareMatrix<Complex>;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;
constexpr EigenvalueScale original = EigenvalueScale::original;
constexpr EigenvalueScale internal = EigenvalueScale::internal;

/// The registered relative deflation tolerance, of which double keeps the distance from its unit.
template <typename T>
constexpr double deflation_tolerance = std::is_same_v<T, float> ? 1e-4F : 1e-4F * 0x1p-29;

/// How far A may be, relative to its norm, from a matrix whose pairs the solver finds: ten times
/// the usual bound of rounding in unitary similarities, and a deflation at its limit.
template <typename T>
double backward_error_limit(std::size_t n) {
    const double epsilon = std::numeric_limits<T>::epsilon();
    return 10 * static_cast<double>(n) * epsilon + deflation_tolerance<T>;
}

template <typename T>
class Solution {
  public:
    using Element = std::complex<T>;

    explicit Solution(const SquareMatrix<Element>& A, EigenvalueScale scale = original)
        : pairs(A.order) {
        CpuFallback::solve_complex_eigen<T>({A.elements.data(), A.order, A.order, row_major}, pairs,
                                            scale);
    }

    std::vector<Complex> values() const {
        return {pairs.eigenvalues(), pairs.eigenvalues() + pairs.size()};
    }
    std::vector<Complex> vector(std::size_t k) const {
        const Element* first = pairs.eigenvectors() + k * pairs.size();
        return {first, first + pairs.size()};
    }
    std::vector<Element> bits() const {
        std::vector<Element> all(pairs.eigenvalues(), pairs.eigenvalues() + pairs.size());
        all.insert(all.end(), pairs.eigenvectors(),
                   pairs.eigenvectors() + pairs.size() * pairs.size());
        return all;
    }

    HostEigenVals<Element, Element> pairs;
};

/// A kind of matrix, and a power of two from the range of the element type to multiply it with.
struct Family {
    const char* name;
    Matrix (*make)(std::size_t n, CounterRandom& random);
    int (*scale_exponent)(int lowest, int highest, int n) = [](int, int, int) { return 0; };
};

/// Column j and row i scaled by powers of two, up to 2^60 against each other: what balancing
/// undoes.
Matrix badly_scaled(Matrix A) {
    const auto n = static_cast<int>(A.order);
    for (int i = 0; i < n; ++i) {
        for (int j = 0; j < n; ++j) {
            const auto at = static_cast<std::size_t>(i * n + j);
            A.elements[at] *= std::exp2(60 * j / n - 60 * i / n);
        }
    }
    return A;
}

/// Eigenvalues in three clusters that are a few rounding errors wide.
Matrix clustered(std::size_t n, CounterRandom& random) {
    std::vector<Complex> values(n);
    for (std::size_t i = 0; i < n; ++i) {
        values[i] = Complex(static_cast<double>(i % 3), 1) * (1 + unit * static_cast<double>(i));
    }
    return in_coordinates(random_unitary<Complex>(n, random), diagonal_matrix(values));
}

/// Jordan blocks of order 3 with the eigenvalues 1, 2 and so on.
Matrix jordan(std::size_t n) {
    return filled<Complex>(n, [](std::size_t i, std::size_t j) {
        return i == j ? static_cast<double>(1 + i / 3) : i + 1 == j && j % 3 != 0 ? 1.0 : 0.0;
    });
}

Matrix permutation(std::size_t n, CounterRandom& random) {
    std::vector<std::size_t> images(n);
    std::iota(images.begin(), images.end(), std::size_t{0});
    random.shuffle(images);
    return filled<Complex>(n, [&](std::size_t i, std::size_t j) { return images[i] == j; });
}

const Family families[] = {
    {"random", random_matrix<Complex>},
    {"near overflow", random_matrix<Complex>,
     [](int, int highest, int n) { return highest - 2 - std::ilogb(n + 1); }},
    {"near underflow", random_matrix<Complex>, [](int lowest, int, int) { return lowest + 60; }},
    {"real",
     [](std::size_t n, CounterRandom& random) {
         return filled<Complex>(n, [&](std::size_t, std::size_t) { return uniform(random); });
     }},
    {"badly scaled",
     [](std::size_t n, CounterRandom& random) {
         return badly_scaled(random_matrix<Complex>(n, random));
     }},
    {"graded",
     [](std::size_t n, CounterRandom& random) {
         return filled<Complex>(n, [&](std::size_t i, std::size_t j) {
             return uniform(random) * std::exp2(-static_cast<double>(i + j) / 2);
         });
     }},
    {"clustered", clustered},
    {"defective",
     [](std::size_t n, CounterRandom& random) {
         return in_coordinates(random_unitary<Complex>(n, random), jordan(n));
     }},
    {"normal",
     [](std::size_t n, CounterRandom& random) {
         const auto values = random_elements<Complex>(n, [&] { return uniform(random); });
         return in_coordinates(random_unitary<Complex>(n, random), diagonal_matrix(values));
     }},
    {"hermitian",
     [](std::size_t n, CounterRandom& random) {
         return hermitian(random_matrix<Complex>(n, random));
     }},
    {"upper triangular",
     [](std::size_t n, CounterRandom& random) {
         return filled<Complex>(
             n, [&](std::size_t i, std::size_t j) { return i <= j ? uniform(random) : 0; });
     }},
    {"lower triangular",
     [](std::size_t n, CounterRandom& random) {
         return filled<Complex>(
             n, [&](std::size_t i, std::size_t j) { return i >= j ? uniform(random) : 0; });
     }},
    {"jordan blocks", [](std::size_t n, CounterRandom&) { return jordan(n); }},
    {"permutation", permutation},
    {"second difference",
     [](std::size_t n, CounterRandom&) { return second_difference<Complex>(n); }},
    {"zero",
     [](std::size_t n, CounterRandom&) { return diagonal_matrix(std::vector<Complex>(n)); }},
};

template <typename T>
struct ComplexEigenSolver : ::testing::Test {
    using Limits = std::numeric_limits<T>;
    using Stored = SquareMatrix<std::complex<T>>;

    static Stored stored(const Matrix& A) {
        return {A.order, {A.elements.begin(), A.elements.end()}};
    }
    static Stored make(const Family& family, std::size_t n) {
        CounterRandom random(n);
        auto A = stored(family.make(n, random));
        const int exponent =
            family.scale_exponent(Limits::min_exponent, Limits::max_exponent, static_cast<int>(n));
        for (auto& element : A.elements) {
            element *= std::scalbn(T(1), exponent);
        }
        return A;
    }
};

using StoredReals = ::testing::Types<float, double>;
TYPED_TEST_SUITE(ComplexEigenSolver, StoredReals);

TYPED_TEST(ComplexEigenSolver, FindsPairsOfUnitVectorsWithSmallResiduals) {
    for (const Family& family : families) {
        for (const std::size_t n : eigen_orders) {
            const auto A = this->make(family, n);
            const Solution<TypeParam> solution(A);
            for (std::size_t k = 0; k < n; ++k) {
                const auto v = solution.vector(k);
                const WideComplex lambda(solution.values()[k]);
                EXPECT_LE(pair_residual(A, lambda, v), backward_error_limit<TypeParam>(n))
                    << family.name << ", pair " << k << " of " << n;
                // A norm is a chain of n rounded steps, and each element is rounded after it.
                EXPECT_LE(std::abs(euclidean_norm(v) - 1),
                          static_cast<double>(n + 1) * TestFixture::Limits::epsilon())
                    << family.name << ", vector " << k << " of " << n;
            }
        }
    }
}

TYPED_TEST(ComplexEigenSolver, ScalesItsEigenvaluesWithTheMatrix) {
    const auto A = this->make(families[0], 10);
    const Solution<TypeParam> solution(A);
    for (const int exponent :
         {-TestFixture::Limits::max_exponent / 2, 1, TestFixture::Limits::max_exponent / 2}) {
        auto scaled = A;
        const TypeParam factor = std::scalbn(TypeParam(1), exponent);
        for (auto& element : scaled.elements) {
            element *= factor;
        }
        auto expected = solution.bits();
        for (std::size_t k = 0; k < A.order; ++k) {
            expected[k] *= factor;
        }
        EXPECT_TRUE(same_bits(Solution<TypeParam>(scaled).bits(), expected)) << exponent;
    }
}

/// The largest distance between members of two sets, each paired with the nearest one left.
double set_distance(std::vector<Complex> found, const std::vector<Complex>& expected) {
    double largest = found.size() == expected.size() ? 0 : HUGE_VAL;
    for (const Complex value : expected) {
        const auto nearest = std::ranges::min_element(
            found, {}, [value](Complex candidate) { return std::abs(candidate - value); });
        largest = std::max(largest, std::abs(*nearest - value));
        found.erase(nearest);
    }
    return largest;
}

/// A matrix with known eigenvalues, each of which moves by at most `condition` times the norm of a
/// small change of the matrix, raised to one over `block`, the order of its largest Jordan block.
struct KnownSpectrum {
    const char* name;
    Matrix A;
    std::vector<Complex> eigenvalues;
    double condition = 1;
    int block = 1;
};

KnownSpectrum circulant(std::size_t n, CounterRandom& random) {
    const auto column = random_elements<Complex>(n, [&] { return uniform(random); });
    KnownSpectrum known{
        "circulant",
        filled<Complex>(n, [&](std::size_t i, std::size_t j) { return column[(i + n - j) % n]; }),
        std::vector<Complex>(n)};
    for (std::size_t k = 0; k < n; ++k) {
        for (std::size_t i = 0; i < n; ++i) {
            const double turn = static_cast<double>(i * k % n) / static_cast<double>(n);
            known.eigenvalues[k] += column[i] * std::polar(1.0, -2 * std::numbers::pi * turn);
        }
    }
    return known;
}

std::vector<KnownSpectrum> known_spectra() {
    CounterRandom random(1);
    std::vector<KnownSpectrum> known;
    for (const std::size_t n : {3, 4, 10, 33}) {
        known.push_back(circulant(n, random));
        // The roots of unity: Wilkinson shifts alone would never move a cyclic permutation.
        KnownSpectrum cycle{
            "cycle",
            filled<Complex>(n, [&](std::size_t i, std::size_t j) { return j == (i + 1) % n; }),
            {}};
        for (std::size_t k = 0; k < n; ++k) {
            const double turn = static_cast<double>(k) / static_cast<double>(n);
            cycle.eigenvalues.push_back(std::polar(1.0, 2 * std::numbers::pi * turn));
        }
        known.push_back(cycle);
    }
    for (const std::size_t n : {2, 3, 5}) {
        const auto block = filled<Complex>(n, [](std::size_t i, std::size_t j) {
            return i == j ? 2.0 : j + 1 == i ? 1.0 : 0.0;
        });
        // Nine: a margin over the first-order term of the expansion in fractional powers.
        known.push_back(
            {"Jordan block", block, std::vector<Complex>(n, 2), 9, static_cast<int>(n)});
        known.push_back({"Jordan block in other coordinates",
                         in_coordinates(random_unitary<Complex>(n, random), block),
                         std::vector<Complex>(n, 2), 9, static_cast<int>(n)});
    }
    return known;
}

TYPED_TEST(ComplexEigenSolver, FindsKnownEigenvalues) {
    for (const KnownSpectrum& known : known_spectra()) {
        const Solution<TypeParam> solution(this->stored(known.A));
        const double change = known.condition * backward_error_limit<TypeParam>(known.A.order) *
                              static_cast<double>(euclidean_norm(known.A.elements));
        EXPECT_LE(set_distance(solution.values(), known.eigenvalues),
                  std::pow(change, 1.0 / known.block))
            << known.name << " of order " << known.A.order;
    }
}

// Balancing undoes a diagonal similarity by powers of two, so that small eigenvalues of a matrix
// with norm 2^60 are found as well as those of a Hermitian one of norm 1.
TYPED_TEST(ComplexEigenSolver, FindsEigenvaluesOfBadlyScaledMatrices) {
    CounterRandom random(3);
    const auto A = hermitian(random_matrix<Complex>(10, random));
    const double change =
        backward_error_limit<TypeParam>(A.order) * static_cast<double>(euclidean_norm(A.elements));
    EXPECT_LE(set_distance(Solution<TypeParam>(this->stored(badly_scaled(A))).values(),
                           Solution<double>(A).values()),
              2 * change);
}

TYPED_TEST(ComplexEigenSolver, LeavesDiagonalAndTriangularOrderAlone) {
    using Element = std::complex<TypeParam>;
    const std::vector<Element> diagonal{3, {0, 1}, -0.0, 7, 3};
    const Solution<TypeParam> solution(diagonal_matrix(diagonal));
    for (std::size_t k = 0; k < diagonal.size(); ++k) {
        auto axis = std::vector<Complex>(diagonal.size());
        axis[k] = 1;
        EXPECT_EQ(Element(solution.values()[k]), diagonal[k]);
        EXPECT_EQ(solution.vector(k), axis);
    }
    const Solution<TypeParam> triangle({3, {2, 5, 6, 0, 1, 7, 0, 0, 2}});
    EXPECT_THAT(triangle.values(), ElementsAre(2.0, 1.0, 2.0));
    EXPECT_EQ(triangle.vector(0), (std::vector<Complex>{1, 0, 0}));
}

// Both pairs of a nilpotent block share the first axis, for the second up to what keeps its
// denominator from zero.
TYPED_TEST(ComplexEigenSolver, GivesDefectiveEigenvaluesParallelVectors) {
    const Solution<TypeParam> solution({2, {0, 1, 0, 0}});
    EXPECT_THAT(solution.values(), ElementsAre(0.0, 0.0));
    EXPECT_EQ(solution.vector(0), (std::vector<Complex>{1, 0}));
    EXPECT_NEAR(std::abs(solution.vector(1)[0]), 1, TestFixture::Limits::epsilon());
    EXPECT_LE(std::abs(solution.vector(1)[1]), 2 * TestFixture::Limits::epsilon());
}

template <typename Call>
void expect_failure(const Call& call, const std::string& detail) {
    expect_solver_error(call, -1, detail, "SimdEngine::eigen", "SimdEngine::eigen - " + detail,
                        ErrorReason::solver_failure);
}

TYPED_TEST(ComplexEigenSolver, RefusesNumbersThatAreNotFiniteBeforeAnyWork) {
    const TypeParam infinity = TestFixture::Limits::infinity();
    for (const std::complex<TypeParam> bad :
         {std::complex(infinity), std::complex(TypeParam(0), TestFixture::Limits::quiet_NaN())}) {
        expect_failure(
            [&] {
                Solution<TypeParam>({2, {1, 0, bad, 1}});
            },
            "input contains a non-finite value");
    }
}

TYPED_TEST(ComplexEigenSolver, RefusesShapesThatDiffer) {
    const std::vector<std::complex<TypeParam>> elements(6);
    for (const auto& [rows, cols, order] :
         {std::array<std::size_t, 3>{2, 3, 2}, {3, 2, 2}, {2, 2, 1}}) {
        HostEigenVals<std::complex<TypeParam>, std::complex<TypeParam>> pairs(order);
        expect_error<std::invalid_argument>(
            [&, rows = rows, cols = cols] {
                CpuFallback::solve_complex_eigen<TypeParam>(
                    {elements.data(), rows, cols, row_major}, pairs, original);
            },
            "SimdEngine::eigen - incompatible shapes");
    }
}

// The last eigenvalue is twice the largest number. The first pair has been stored by then.
TYPED_TEST(ComplexEigenSolver, FailsForEigenvaluesOutsideTheRangeUnlessTheirUnitsAreInternal) {
    using Element = std::complex<TypeParam>;
    const TypeParam largest = TestFixture::Limits::max();
    const SquareMatrix<Element> A{3, {1, 0, 0, 0, largest, largest, 0, largest, largest}};
    HostEigenVals<Element, Element> pairs(3);
    expect_failure(
        [&] {
            CpuFallback::solve_complex_eigen<TypeParam>({A.elements.data(), 3, 3, row_major}, pairs,
                                                        original);
        },
        std::is_same_v<TypeParam, float> ? "eigenvalue is outside the finite complex64 range"
                                         : "eigenvalue is outside the finite complex128 range");
    EXPECT_EQ(pairs.eigenvalues()[0], Element(1));
    EXPECT_EQ(std::abs(pairs.eigenvectors()[0]), 1);
    const Solution<TypeParam> solution(A, internal);
    const auto greatest =
        std::ranges::max(solution.values(), {}, [](Complex value) { return std::abs(value); });
    // The matrix is scaled to parts below 1 by one power of two, so its rounded double follows.
    EXPECT_NEAR(std::abs(greatest), 2, 4 * TestFixture::Limits::epsilon());
}

// The eigenvalues of [[1, 1], [1, 0]] are the golden ratio and what it exceeds 1 by, negated: in
// units of the smallest number the former rounds to 2.
TYPED_TEST(ComplexEigenSolver, RefusesEigenvaluesThatRoundingTookFromTheirVectors) {
    const TypeParam smallest = TestFixture::Limits::denorm_min();
    const double residual = (1 - std::numbers::phi / 2) / (1 + std::sqrt(0.75));
    expect_failure(
        [&] {
            Solution<TypeParam>({2, {smallest, smallest, smallest, 0}});
        },
        "normalised eigenpair residual " + std::to_string(residual) + " exceeds tolerance " +
            (std::is_same_v<TypeParam, float> ? "0.001000" : "0.000000"));
}

// The smallest number keeps a matrix from being scaled down exactly.
TEST(ComplexEigenSolverFailure, ReportsIntermediatesThatAreNotFinite) {
    using Limits = std::numeric_limits<double>;
    const SquareMatrix<Complex> A{2, {Limits::max() / 2, 0, Limits::max(), Limits::denorm_min()}};
    expect_failure([&] { Solution<double> solution(A); },
                   "QR iteration produced a non-finite intermediate");
}

// The last row is as large as itself and so never negligible, and too small to be rotated away.
TEST(ComplexEigenSolverFailure, GivesUpAfterTooManyIterationsWithoutDeflation) {
    const SquareMatrix<Complex> A{2, {1, 0, std::numeric_limits<double>::denorm_min(), 0}};
    const std::string detail = "failed to converge after 256 shifted QR iterations without "
                               "deflation at active dimension 2";
    expect_solver_error([&] { Solution<double> solution(A); }, 256, detail, "SimdEngine::eigen",
                        "SimdEngine::eigen - QR iteration " + detail, ErrorReason::non_convergence);
}

} // namespace
} // namespace Tessaline
