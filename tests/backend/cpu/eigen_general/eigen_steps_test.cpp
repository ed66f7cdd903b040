// SPDX-License-Identifier: Apache-2.0
// The parts of the general eigensolver.

#include "backend/cpu/eigen_general/balancing.h"
#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/eigen_general/pair_recovery.h"
#include "backend/cpu/eigen_general/qr_step.h"
#include "backend/cpu/eigen_general/schur.h"
#include "backend/cpu/eigen_general/shift.h"
#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/numbers/hypotenuse.h"

#include <gmock/gmock.h>

namespace Tessaline::CpuFallback {
namespace {

using namespace Testing;
using ::testing::Each;
using ::testing::ElementsAre;
using Complex = std::complex<double>;

using Matrix = SquareMatrix<Complex>;

constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr double most = std::numeric_limits<double>::max();

Matrix widely_scaled(std::size_t n, CounterRandom& random) {
    return filled<Complex>(n, [&](std::size_t, std::size_t) {
        return Complex(spread(random, -200, 200), spread(random, -200, 200));
    });
}

TEST(EigenBalancing, IsAnExactSimilarityThatLeavesNothingToBalance) {
    for (const std::size_t n : eigen_orders) {
        CounterRandom random(n);
        const auto A = widely_scaled(n, random);
        auto balanced = A;
        const auto exponents = balance(balanced.elements, n);
        const auto restored = filled<Complex>(n, [&](std::size_t i, std::size_t j) {
            return scaled(balanced(i, j), exponents[i] - exponents[j]);
        });
        EXPECT_TRUE(same_bits(restored.elements, A.elements)) << n;
        EXPECT_THAT(balance(balanced.elements, n), Each(0)) << n;
    }
}

TEST(EigenBalancing, BringsRowsAndColumnsWithinTwoBinades) {
    Matrix A{3, {5, 0x1p-40, 0x1p-80, 0x1p40, 7, 0x1p-40, 0x1p80, 0x1p40, 9}};
    balance(A.elements, 3);
    for (const Complex element : A.elements) {
        EXPECT_LE(std::abs(std::log2(std::abs(element))), std::log2(9.0));
    }
}

TEST(EigenBalancing, IsMadeWhereItTakesATwentiethOfTheNorms) {
    // Of norms 1 and r, scaling by 2 makes 2 and r / 2: that is worth it above 18 / 8.5 = 2.37.
    Matrix kept{2, {0, 2.3, 1, 0}};
    EXPECT_THAT(balance(kept.elements, 2), ElementsAre(0, 0));
    Matrix changed{2, {0, 2.4, 1, 0}};
    EXPECT_THAT(balance(changed.elements, 2), ElementsAre(1, 0));
    EXPECT_THAT(changed.elements, ElementsAre(0.0, 1.2, 2.0, 0.0));
}

TEST(EigenBalancing, LeavesWhatItCouldNotScaleBack) {
    const double odd = 0x1p-1040 + smallest;
    Matrix A{2, {0, smallest, odd, 0}};
    EXPECT_THAT(balance(A.elements, 2), Each(0));
    EXPECT_THAT(A.elements, ElementsAre(0.0, smallest, odd, 0.0));
}

TEST(EigenScaling, DividesByTheLargestExponentThatIsExact) {
    struct Case {
        std::vector<Complex> values;
        std::vector<Complex> companions;
        int exponent;
    };
    const Case cases[] = {
        {{}, {}, 0},
        {{0.0, Complex(0, -0.0)}, {}, 0},
        {{3.0, Complex(0.25, -12)}, {}, 4},
        {{0x1p-1074}, {}, -1073},
        {{1.0, Complex(0, 0x1p-1072)}, {}, 1},
        {{0x1p10, Complex(0, 0x1p-1072)}, {}, 2},
        {{1.0, smallest}, {}, 0},
        {{8.0}, {smallest}, 0},
        {{8.0}, {4 * smallest}, 2},
        {{0x1p-1000}, {0x1p1000}, -23},
        {{0x1p-1000}, {smallest}, -999},
    };
    for (const Case& c : cases) {
        EXPECT_EQ(exact_scaling_exponent(c.values, c.companions), c.exponent)
            << ::testing::PrintToString(c.values) << ::testing::PrintToString(c.companions);
    }
}

TEST(EigenScaling, NormalisesFromTheEndsOfTheRange) {
    for (const double size : {smallest, 1.0, most}) {
        std::vector<Complex> v{0, Complex(size, size), size, -0.0};
        EXPECT_TRUE(normalise(v));
        EXPECT_NEAR(v[2].real(), 1 / std::sqrt(3.0), 2 * unit) << size;
        EXPECT_NEAR(static_cast<double>(euclidean_norm(v)), 1, 2 * unit) << size;
    }
    std::vector<Complex> zero(3);
    EXPECT_FALSE(normalise(zero));
}

/// G* H G and Z G as plain products, with G the identity but for its leading block.
SchurForm plainly_transformed(const SchurForm& schur, std::span<const Complex> columns,
                              std::size_t active) {
    const std::size_t n = schur.n;
    const auto G = filled<Complex>(n, [&](std::size_t i, std::size_t j) {
        return i < active && j < active ? columns[j * active + i] : Complex(i == j);
    });
    const auto product = [n](const auto& left, const auto& right) {
        return filled<Complex>(n, [&](std::size_t i, std::size_t j) {
            Complex sum = 0;
            for (std::size_t k = 0; k < n; ++k) {
                sum += left(i, k) * right(k, j);
            }
            return sum;
        });
    };
    const auto adjoint =
        filled<Complex>(n, [&](std::size_t i, std::size_t j) { return std::conj(G(j, i)); });
    SchurForm result(product(adjoint, product(Matrix{n, schur.H}, G)).elements, n);
    result.Z = product(Matrix{n, schur.Z}, G).elements;
    return result;
}

TEST(EigenQrStep, HasTheBitsOfProductsOfWholeMatrices) {
    for (const std::size_t n : eigen_orders) {
        for (std::size_t active = 2; active <= n; active += 1 + n / 7) {
            CounterRandom random(n + 100 * active);
            // Zeros of either sign among the elements, and nothing left of the deflated diagonal.
            const auto H = filled<Complex>(n, [&](std::size_t i, std::size_t j) {
                const auto part = [&] { return random.below(3) == 0 ? -0.0 : uniform(random); };
                return i >= active && j < i ? Complex(0) : random_element<Complex>(part);
            });
            SchurForm schur(H.elements, n);
            schur.Z = random_unitary<Complex>(n, random).elements;
            schur.Z[n - 1] = Complex(-0.0, -0.0);
            auto columns = random_matrix<Complex>(active, random).elements;
            plain_orthonormalise_columns(columns, active, unit);
            const auto expected = plainly_transformed(schur, columns, active);
            QrStep(n).transform(schur, columns, active);
            EXPECT_TRUE(same_bits(schur.H, expected.H)) << active << " of " << n;
            EXPECT_TRUE(same_bits(schur.Z, expected.Z)) << active << " of " << n;
        }
    }
}

/// Calls `body` with the kernels of each instruction set that the machine has.
template <typename Body>
void for_each_kernels(const Body& body) {
    for_each_instruction_set(SimdKernels::avx256_gram_schmidt_kernels,
                             SimdKernels::avx512_gram_schmidt_kernels, body);
}

void expect_same_in_vectors(const std::vector<Complex>& given, const std::vector<Complex>& expected,
                            std::size_t m) {
    for_each_kernels([&](const SimdKernels::GramSchmidtKernels& kernels) {
        auto columns = given;
        // Room for more columns than there are, as in an iteration on a deflated matrix.
        GramSchmidt(m + 5, kernels).orthonormalise(columns, m, unit);
        EXPECT_TRUE(same_bits(columns, expected)) << m << " columns";
    });
}

// A column of each kind, and its norm as a chain. Of NaN any may be stored.
TEST(EigenQrStep, TakesHypotenusesAndTheirChainsAsTheLibraryDoes) {
    using Draw = double (*)(CounterRandom&);
    const Draw kinds[] = {
        [](CounterRandom& random) { return uniform(random); },
        [](CounterRandom& random) { return random.below(3) == 0 ? -0.0 : uniform(random); },
        [](CounterRandom& random) { return integer(random, 1); },
        [](CounterRandom& random) { return spread(random, -60, 0); },
        [](CounterRandom& random) { return spread(random, -1080, 1020); },
        [](CounterRandom& random) { return spread(random, -1080, -1000); },
        [](CounterRandom& random) { return random.below(200) == 0 ? HUGE_VAL : uniform(random); },
        [](CounterRandom& random) { return random.below(200) == 0 ? std::nan("") : 1.0; },
    };
    CounterRandom random(12);
    for (std::size_t round = 0; round < 2000; ++round) {
        const Draw draw = kinds[round % std::size(kinds)];
        const std::size_t m = 1 + random.below(70);
        SCOPED_TRACE(::testing::Message() << "round " << round << ", " << m << " elements");
        const CpuStructured::PlanarMatrix<Complex> column(1, m);
        std::vector<double> plain(m + 1);
        std::vector<double> inlined(m + 1);
        for (std::size_t i = 0; i < m; ++i) {
            const Complex value = random_element<Complex>([&] { return draw(random); });
            column.set(0, i, value);
            plain[i] = result_as<double>(std::abs(value));
            inlined[i] = result_as<double>(hypotenuse(value));
            plain[m] = result_as<double>(std::hypot(plain[m], plain[i]));
        }
        inlined[m] = plain[m];
        EXPECT_TRUE(same_bits(inlined, plain));
        for_each_kernels([&](const SimdKernels::GramSchmidtKernels& kernels) {
            std::vector<double> found(m + column_group);
            kernels.magnitudes(column.at(0, 0), column.shape().imaginary, m, found.data());
            const double norm = kernels.chain_norm(found.data(), m);
            found.resize(m);
            found.push_back(norm);
            std::ranges::transform(found, found.begin(), result_as<double>);
            EXPECT_TRUE(same_bits(found, plain));
        });
    }
}

TEST(EigenQrStep, OrthonormalisesInVectorsToTheSameBits) {
    CounterRandom random(9);
    for (const std::size_t m : {1, 2, 7, 8, 9, 16, 33, 41, 64, 100}) {
        for (const int binades : {0, 60, 1000}) {
            auto given = random_elements<Complex>(m * m, [&] {
                return random.below(9) == 0 ? -0.0 : spread(random, -binades, binades / 2);
            });
            auto columns = given;
            plain_orthonormalise_columns(columns, m, unit);
            expect_same_in_vectors(given, columns, m);
        }
    }
}

TEST(EigenQrStep, RecoversInfinitiesLikePlainProducts) {
    constexpr std::size_t m = 9;
    CounterRandom random(10);
    auto given = random_matrix<Complex>(m, random).elements;
    for (std::size_t i = 0; i < 3; ++i) {
        given[i * m + i] = Complex(most, most);
    }
    auto columns = given;
    plain_orthonormalise_columns(columns, m, unit);
    expect_same_in_vectors(given, columns, m);
}

// Ranks from 0 up, with columns that differ by rounding errors only, and of very different size.
TEST(EigenQrStep, CompletesTheBasisOfDependentColumns) {
    for (const std::size_t m : {2, 5, 33}) {
        for (std::size_t rank = 0; rank <= m; rank += 1 + m / 5) {
            CounterRandom random(m + 100 * rank);
            const auto base = random_matrix<Complex>(m, random);
            std::vector<Complex> columns(m * m);
            for (std::size_t j = 0; j < m && rank > 0; ++j) {
                for (std::size_t i = 0; i < m; ++i) {
                    columns[j * m + i] = base(j % rank, i) * (1 + unit * uniform(random)) *
                                         std::exp2(static_cast<double>(j % 7) * 20 - 60);
                }
            }
            const auto given = columns;
            plain_orthonormalise_columns(columns, m, unit);
            expect_same_in_vectors(given, columns, m);
            EXPECT_LE(distance_from_orthonormal(columns, m), 2 * static_cast<double>(m) * unit)
                << "rank " << rank << " of " << m;
        }
    }
}

// Scaled down with the block the shift would vanish, and with it the last column.
TEST(EigenQrStep, ScalesTheBlockOnlyAsTheShiftPermits) {
    SchurForm schur({1, 0, 0, 0}, 2);
    QrStep(2).iterate(schur, 2, smallest, unit);
    EXPECT_THAT(schur.Z, ElementsAre(1.0, 0.0, 0.0, -1.0));
}

TEST(EigenShift, TakesTheEigenvalueNearerToTheCorner) {
    const Complex i(0, 1);
    EXPECT_EQ(wilkinson_shift(0, 0, 0, 0), 0.0);
    EXPECT_EQ(wilkinson_shift(5, 0, 0, 3), 3.0);
    EXPECT_EQ(wilkinson_shift(3, 0, 0, 5), 5.0);
    EXPECT_EQ(wilkinson_shift(0, 1, 1, 0), 1.0); // both equally near
    EXPECT_EQ(wilkinson_shift(0, 1, -1, 0), i);
    EXPECT_EQ(wilkinson_shift(0, most, most, 0), most);
    EXPECT_EQ(wilkinson_shift(0, smallest, smallest, 0), smallest);
    EXPECT_EQ(wilkinson_shift(1, 0, i, 2.0 + i), 2.0 + i);
}

TEST(EigenShift, IsExceptionalAfterSixteenIterationsInVain) {
    // The largest element of the last row and column is 5: offsets are in units of 4.
    const SchurForm schur({9, 9, 5, 9, 9, 0, 0, 0, 1}, 3);
    const Complex wilkinson = 1;
    const Complex first = 1.0 + 4.0 * Complex(0.75, 0.25);
    const Complex second = 1.0 + 4.0 * Complex(-0.4375, 0.3125);
    ShiftSequence shifts;
    const auto run = [&](int iterations, Complex expected) {
        for (int iteration = 0; iteration < iterations; ++iteration) {
            EXPECT_EQ(shifts.next(schur, 3), expected) << "iteration " << iteration;
            shifts.record(false, 3);
        }
    };
    run(16, wilkinson);
    run(1, first);
    run(16, wilkinson);
    run(1, second);
    run(15, wilkinson);
    // A deflation starts the count anew, but does not change whose turn it is.
    EXPECT_EQ(shifts.next(schur, 3), wilkinson);
    shifts.record(true, 3);
    run(16, wilkinson);
    run(1, first);
}

TEST(EigenShift, StaysInRangeAndLeavesZeroAlone) {
    for (const auto& [corner, expected] :
         {std::pair<Complex, Complex>{most, most - 0x1p1023 * Complex(0.75, 0.25)}, {0, 0}}) {
        const SchurForm schur({0, 0, 0, corner}, 2);
        ShiftSequence shifts;
        for (int iteration = 0; iteration < 16; ++iteration) {
            shifts.next(schur, 2);
            shifts.record(false, 2);
        }
        EXPECT_EQ(shifts.next(schur, 2), expected);
    }
}

// A row left of the diagonal, and which order remains active.
TEST(EigenDeflation, MeasuresARowAgainstItsRowAndColumnAndTheInput) {
    struct Case {
        const char* name;
        double element;
        double diagonal;
        std::vector<int> exponents; // of the balancing
        double guard;
        std::size_t remaining;
    };
    const double tolerance = 0x1p-40;
    const double lenient = 100;
    const Case cases[] = {
        {"zero", 0, 0, {0, 0}, -lenient, 1},
        {"below the tolerance of its diagonal", 0x1p-42, 1, {0, 0}, lenient, 1},
        {"at the tolerance of its diagonal", 0x1p-40, 1, {0, 0}, lenient, 2},
        {"beside a small diagonal", 0x1p-42, 0x1p-10, {0, 0}, lenient, 2},
        {"too large for the input", 0x1p-42, 1, {0, 0}, -43, 2},
        {"at the guard", 0x1p-42, 1, {0, 0}, -42, 1},
        // The row lies along axis 0 and acts on axis 1.
        {"amplified along its axis", 0x1p-42, 1, {0, 20}, -23, 2},
        {"damped along its axis", 0x1p-42, 1, {0, -20}, -62, 1},
        {"amplified by its elements", 0x1p-42, 1, {-20, 0}, -23, 2},
        {"damped by its elements", 0x1p-42, 1, {20, 0}, -62, 1},
    };
    for (const Case& c : cases) {
        SchurForm schur({1, 0, c.element, c.diagonal}, 2);
        Deflation deflation(tolerance, c.guard, c.exponents);
        EXPECT_EQ(deflation.deflate(schur, 2), c.remaining) << c.name;
        EXPECT_EQ(schur.H[2], c.remaining == 1 ? 0 : c.element) << c.name;
    }
}

// With the row (1, i) and the columns (1, i) and (i, 1) of Z, the row times the adjoint of Z has
// its weight on axis 0 alone.
TEST(EigenDeflation, MeasuresTheRowInTheCoordinatesOfTheInput) {
    const Complex i(0, 1);
    const double size = 0x1p-50;
    for (const auto& [exponents, remaining] :
         {std::pair<std::vector<int>, std::size_t>{{20, 0, 0}, 1}, {{0, 20, 0}, 3}}) {
        SchurForm schur({1, 0, 0, 0, 1, 0, size, size * i, 1}, 3);
        const double half = std::sqrt(0.5);
        schur.Z = {half, half * i, 0, half * i, half, 0, 0, 0, 1};
        Deflation deflation(0x1p-40, -60, exponents);
        EXPECT_EQ(deflation.deflate(schur, 3), remaining);
    }
}

TEST(EigenSchur, ReportsTheOrderThatDoesNotConverge) {
    CounterRandom random(1);
    SchurForm schur(random_matrix<Complex>(5, random).elements, 5);
    const std::vector<int> exponents(5);
    Deflation never(0, 100, exponents);
    const std::string detail = "failed to converge after 256 shifted QR iterations without "
                               "deflation at active dimension 5";
    expect_solver_error([&] { reduce_to_triangular(schur, never, unit); }, 256, detail,
                        "SimdEngine::eigen", "SimdEngine::eigen - QR iteration " + detail,
                        ErrorReason::non_convergence);
}

TEST(EigenPairRecovery, SolvesTrianglesWithRepeatedEigenvaluesWithoutOverflow) {
    // A Jordan block: every step divides by the floor, epsilon, and scales the largest element to
    // a half, until elements vanish. All of it is exact.
    const std::size_t n = 40;
    const auto block = filled<Complex>(n, [](std::size_t i, std::size_t j) {
        return i == j ? 1.0 : i + 1 == j ? 1.0 : 0.0;
    });
    const SchurForm schur(block.elements, n);
    std::vector<Complex> x(n);
    BackSubstitution(n, unit, smallest).solve(schur, 1, x);
    for (std::size_t i = 0; i < n; ++i) {
        const double size = std::scalbn(0.5, -52 * static_cast<int>(i));
        EXPECT_EQ(x[i], i % 2 == 0 ? -size : size) << i;
    }
}

} // namespace
} // namespace Tessaline::CpuFallback
