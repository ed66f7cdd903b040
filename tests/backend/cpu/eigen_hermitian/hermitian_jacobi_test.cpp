// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/eigen_hermitian/planar_matrix.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/floating/floating_test_support.h"
#include "support/expect_error.h"

#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using namespace Testing;
using CpuStructured::HermitianEigenResult;
using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Complex = std::complex<double>;

constexpr double smallest = std::numeric_limits<double>::denorm_min();
constexpr double smallest_normal = std::numeric_limits<double>::min();
constexpr double most = std::numeric_limits<double>::max();

template <typename C>
HermitianEigenResult<C> solve(SquareMatrix<C> A, bool vectors = true) {
    return CpuStructured::eigen<C>(A.elements, A.order, vectors);
}

/// Cyclic Jacobi element by element, as the textbook has it: each rotation updates the columns of
/// A and V, and rows of A follow. Without balancing, sorting or limits. Real may be wider than the
/// parts of C, to give values that those in double are measured against.
template <typename C, typename Real>
class PlainJacobi {
  public:
    using Value = std::conditional_t<is_complex_element<C>, std::complex<Real>, Real>;

    PlainJacobi(const SquareMatrix<C>& matrix, double tolerance)
        : n(matrix.order),
          A(matrix.elements.begin(), matrix.elements.end()),
          V(n * n) {
        for (std::size_t i = 0; i < n; ++i) {
            V[i * n + i] = 1;
            a(i, i) = std::real(a(i, i));
            for (std::size_t j = 0; j < i; ++j) {
                a(j, i) = adjoint_of(a(i, j));
            }
        }
        bool rotated = true;
        while (rotated) {
            rotated = false;
            for (std::size_t p = 0; p < n; ++p) {
                for (std::size_t q = p + 1; q < n; ++q) {
                    if (!is_negligible(p, q, static_cast<Real>(tolerance))) {
                        rotate(p, q);
                        rotated = true;
                    }
                }
            }
        }
    }

    Real value(std::size_t i) const { return std::real(A[i * n + i]); }
    /// By ascending value.
    std::vector<std::size_t> order() const {
        std::vector<std::size_t> indices(n);
        std::iota(indices.begin(), indices.end(), std::size_t{0});
        std::ranges::stable_sort(indices, {}, [this](std::size_t i) { return value(i); });
        return indices;
    }

    std::size_t n;
    std::vector<Value> A;
    std::vector<Value> V;

  private:
    static Value adjoint_of(Value value) {
        if constexpr (is_complex_element<C>) {
            return std::conj(value);
        } else {
            return value;
        }
    }
    static Real largest_part(Value value) {
        return std::max(std::abs(std::real(value)), std::abs(std::imag(value)));
    }
    Value& a(std::size_t i, std::size_t j) { return A[i * n + j]; }

    bool is_negligible(std::size_t p, std::size_t q, Real tolerance) {
        const Real size = std::abs(a(p, q));
        const Real sp = std::sqrt(std::abs(a(p, p)));
        const Real sq = std::sqrt(std::abs(a(q, q)));
        return size == 0 ||
               (sp != 0 && sq != 0 && size / std::max(sp, sq) / std::min(sp, sq) <= tolerance);
    }

    void rotate(std::size_t p, std::size_t q) {
        const Value w = a(p, q);
        const Real app = std::real(a(p, p));
        const Real aqq = std::real(a(q, q));
        const Real scale = std::max({largest_part(w), std::abs(app), std::abs(aqq)});
        const Real size = std::abs(w / scale);
        a(p, q) = a(q, p) = 0;
        if (size == 0) {
            return;
        }
        const Real half = Real(1) / 2;
        const Real d = aqq / scale * half - app / scale * half;
        const Real t = std::copysign(size / (std::abs(d) + std::hypot(d, size)), d);
        const Real c = 1 / std::hypot(Real(1), t);
        const Value s = w / scale / size * (c * t);
        const Real shift = t * scale * size;
        a(p, p) = app - shift;
        a(q, q) = aqq + shift;
        for (std::size_t k = 0; k < n; ++k) {
            if (k != p && k != q) {
                update(a(k, p), a(k, q), c, s);
                a(p, k) = adjoint_of(a(k, p));
                a(q, k) = adjoint_of(a(k, q));
            }
            update(V[k * n + p], V[k * n + q], c, s);
        }
    }

    static void update(Value& of_p, Value& of_q, Real c, Value s) {
        const Value u = of_p;
        const Value v = of_q;
        of_p = c * u - v * adjoint_of(s);
        of_q = c * v + u * s;
    }
};

/// Calls `body` with the rotations of each instruction set that the machine has.
template <typename Body>
void for_each_rotation_table(const Body& body) {
    for_each_instruction_set(SimdKernels::avx256_rotation_table, SimdKernels::avx512_rotation_table,
                             body);
}

/// A power of two from the range of double to multiply a matrix with: one that leaves room for sums
/// of its elements, and one near which products would vanish.
constexpr int ordinary = 0;
constexpr int near_overflow = 1010;
constexpr int near_underflow = -1010;

template <typename C>
struct Family {
    const char* name;
    SquareMatrix<C> (*make)(std::size_t n, CounterRandom& random);
    int exponent = ordinary;
};

template <typename C>
SquareMatrix<C> random_hermitian(std::size_t n, CounterRandom& random) {
    return hermitian(random_matrix<C>(n, random));
}

/// Eigenvalues from `value(i)` in random coordinates.
template <typename C, typename Value>
SquareMatrix<C> with_eigenvalues(std::size_t n, CounterRandom& random, const Value& value) {
    std::vector<C> values(n);
    for (std::size_t i = 0; i < n; ++i) {
        values[i] = value(i);
    }
    return hermitian(in_coordinates(random_unitary<C>(n, random), diagonal_matrix(values)));
}

/// The diagonal scaling D of a graded matrix: over many binades, up and down.
double grade(std::size_t i) {
    return std::exp2(-static_cast<double>(i * 37 % 101));
}

/// D A D with A = 1 + B / (4 n), elements of B below 1.5: positive definite, with a condition
/// below 3.
template <typename C>
SquareMatrix<C> graded(std::size_t n, CounterRandom& random) {
    const auto B = random_hermitian<C>(n, random);
    return filled<C>(n, [&](std::size_t i, std::size_t j) {
        const double share = 1 / static_cast<double>(4 * n);
        return (B(i, j) * share + C(i == j)) * (grade(i) * grade(j));
    });
}

template <typename C>
const Family<C> families[] = {
    {"random", random_hermitian<C>},
    {"near overflow", random_hermitian<C>, near_overflow},
    {"near underflow", random_hermitian<C>, near_underflow},
    {"graded", graded<C>},
    {"clustered",
     [](std::size_t n, CounterRandom& random) {
         return with_eigenvalues<C>(n, random, [](std::size_t i) {
             return static_cast<double>(i % 3) + 4 * unit * static_cast<double>(i);
         });
     }},
    {"of rank one",
     [](std::size_t n, CounterRandom& random) {
         return with_eigenvalues<C>(n, random, [](std::size_t i) { return i == 0 ? 1.0 : 0.0; });
     }},
    {"exchange",
     [](std::size_t n, CounterRandom&) {
         return filled<C>(n, [n](std::size_t i, std::size_t j) { return i + j + 1 == n; });
     }},
    {"ones",
     [](std::size_t n, CounterRandom&) {
         return filled<C>(n, [](std::size_t, std::size_t) { return 1; });
     }},
    {"second difference", [](std::size_t n, CounterRandom&) { return second_difference<C>(n); }},
    {"diagonal",
     [](std::size_t n, CounterRandom& random) {
         return filled<C>(
             n, [&](std::size_t i, std::size_t j) { return i == j ? integer(random, 3) : 0; });
     }},
    {"zero", [](std::size_t n, CounterRandom&) { return diagonal_matrix(std::vector<C>(n)); }},
};

template <typename C>
struct HermitianJacobi : ::testing::Test {
    static SquareMatrix<C> make(const Family<C>& family, std::size_t n) {
        CounterRandom random(n);
        auto A = family.make(n, random);
        for (C& element : A.elements) {
            element *= std::scalbn(1.0, family.exponent);
        }
        return A;
    }
};
using Elements = ::testing::Types<double, Complex>;
TYPED_TEST_SUITE(HermitianJacobi, Elements);

template <typename C>
std::vector<C> column(const HermitianEigenResult<C>& result, std::size_t k) {
    const std::size_t n = result.values.size();
    std::vector<C> v(n);
    for (std::size_t i = 0; i < n; ++i) {
        v[i] = result.vectors[i * n + k];
    }
    return v;
}

// With orthonormal vectors small residuals mean that every eigenvalue was found.
TYPED_TEST(HermitianJacobi, FindsOrthonormalVectorsWithSmallResiduals) {
    for (const auto& family : families<TypeParam>) {
        for (const std::size_t n : eigen_orders) {
            const auto A = this->make(family, n);
            const auto result = solve(A);
            const double limit = 5 * static_cast<double>(n) * unit;
            ASSERT_EQ(result.values.size(), n);
            ASSERT_EQ(result.vectors.size(), n * n);
            EXPECT_TRUE(std::ranges::is_sorted(result.values)) << family.name << " of " << n;
            EXPECT_LE(distance_from_orthonormal(result.vectors, n), limit)
                << family.name << " of " << n;
            for (std::size_t k = 0; k < n; ++k) {
                EXPECT_LE(pair_residual(A, result.values[k], column(result, k)), limit)
                    << family.name << ", pair " << k << " of " << n;
            }
        }
    }
}

TYPED_TEST(HermitianJacobi, HasTheBitsOfThePlainMethodWithAndWithoutVectors) {
    for (const auto& family : families<TypeParam>) {
        // Whole blocks and others, and more of them than are looked at side by side.
        for (const std::size_t n : {0, 1, 2, 3, 5, 8, 10, 17, 33, 64, 77}) {
            const auto A = this->make(family, n);
            const PlainJacobi<TypeParam, double> plain(A, static_cast<double>(n) * unit);
            std::vector<double> values;
            std::vector<TypeParam> vectors(n * n);
            for (const std::size_t from : plain.order()) {
                for (std::size_t i = 0; i < n; ++i) {
                    vectors[i * n + values.size()] = plain.V[i * n + from];
                }
                values.push_back(plain.value(from));
            }
            for_each_rotation_table([&](const SimdKernels::RotationTable& kernels) {
                const auto result = CpuStructured::eigen<TypeParam>(A.elements, n, true, kernels);
                EXPECT_TRUE(same_bits(result.values, values)) << family.name << " of " << n;
                EXPECT_TRUE(same_bits(result.vectors, vectors)) << family.name << " of " << n;
                const auto alone = CpuStructured::eigen<TypeParam>(A.elements, n, false, kernels);
                EXPECT_TRUE(same_bits(alone.values, values)) << family.name << " of " << n;
                EXPECT_THAT(alone.vectors, IsEmpty());
            });
        }
    }
}

// Infinities and NaN among the elements; of several NaN any may be stored.
TYPED_TEST(HermitianJacobi, RotationsOfSpecialElementsHaveTheBitsOfPlainProducts) {
    using C = TypeParam;
    constexpr std::size_t block = rotation_block;
    constexpr std::size_t columns = 5 * block;
    CounterRandom random(5);
    const auto one_nan = [](std::vector<C> elements) {
        std::ranges::transform(elements, elements.begin(), result_as<C>);
        return elements;
    };
    for (const unsigned rotated_rows : {0b00010101U, 0b11111111U}) {
        SimdKernels::BlockRotations rotations{rotated_rows, {}};
        for (auto& rotation : rotations.of_row) {
            rotation = {uniform(random), uniform(random),
                        is_complex_element<C> ? uniform(random) : 0};
        }
        const auto values = random_grid<C>(block + 1, columns, random).elements;
        auto expected = values;
        for (std::size_t row = 0; row < block; ++row) {
            const auto& rotation = rotations.of_row[row];
            const auto s = narrowed<C>({rotation.s_real, rotation.s_imag});
            for (std::size_t k = 0; k < columns && (rotated_rows >> row & 1U) != 0; ++k) {
                C& of_common = expected[block * columns + k];
                C& of_row = expected[row * columns + k];
                const C u = of_common;
                const C v = of_row;
                of_common = rotation.c * u - v * adjoint_of(s);
                of_row = rotation.c * v + u * s;
            }
        }
        for_each_rotation_table([&](const SimdKernels::RotationKernels<C>& kernels) {
            const CpuStructured::PlanarMatrix<C> rows(block + 1, columns);
            const CpuStructured::PlanarMatrix<C> adjoint(columns, columns);
            const CpuStructured::PlanarMatrix<C> common(1, columns);
            const CpuStructured::PlanarMatrix<C> leading(block + 1, columns);
            for (std::size_t k = 0; k < columns; ++k) {
                for (std::size_t i = 0; i <= block; ++i) {
                    rows.set(i, k, values[i * columns + k]);
                    leading.set(i, k, values[i * columns + k]);
                    adjoint.set(k, i, adjoint_of(values[i * columns + k]));
                }
                common.set(0, k, values[block * columns + k]);
            }
            kernels.rotate(rows.at(block, 0), rows.at(0, 0), rows.shape(), rotations, columns);
            for (std::size_t k = 0; k < columns; k += block) {
                kernels.rotate_adjoint(common.at(0, k), adjoint.at(k, 0), adjoint.shape(),
                                       rotations);
                // One column more in each block.
                kernels.rotate_leading(leading.at(block, k), leading.at(0, k), leading.shape(),
                                       rotations, k / block + 1);
            }
            for (std::size_t i = 0; i <= block; ++i) {
                for (std::size_t k = 0; k < columns; ++k) {
                    const std::size_t at = i * columns + k;
                    const auto turned =
                        i == block ? common.get(0, k) : adjoint_of(adjoint.get(k, i));
                    const bool leads = k % block <= k / block;
                    const std::vector found{rows.get(i, k), turned, leading.get(i, k)};
                    EXPECT_TRUE(same_bits(
                        one_nan(found),
                        one_nan({expected[at], expected[at], leads ? expected[at] : values[at]})))
                        << "row " << i << ", column " << k;
                }
            }
        });
    }
}

// Rounding the matrix and rotating it are small changes of A in D A D, and such a change moves no
// eigenvalue by more than itself times the condition of A, relative to that eigenvalue.
TYPED_TEST(HermitianJacobi, FindsSmallEigenvaluesOfGradedMatricesToFullRelativeAccuracy) {
    constexpr double condition = 3;
    for (const std::size_t n : {2, 3, 5, 10, 33, 64}) {
        CounterRandom random(n);
        const auto A = graded<TypeParam>(n, random);
        const PlainJacobi<TypeParam, long double> exact(A, 1e-17);
        const auto order = exact.order();
        const auto result = solve(A, false);
        for (std::size_t k = 0; k < n; ++k) {
            const long double expected = exact.value(order[k]);
            EXPECT_LE(std::abs(result.values[k] - expected) / expected,
                      4 * static_cast<double>(n) * unit * condition)
                << "value " << k << " of " << n << ", " << static_cast<double>(expected);
        }
    }
}

TYPED_TEST(HermitianJacobi, ReadsTheLowerTriangleAndTheRealDiagonalOnly) {
    CounterRandom random(7);
    const auto A = random_hermitian<TypeParam>(10, random);
    auto disturbed = A;
    for (std::size_t i = 0; i < A.order; ++i) {
        for (std::size_t j = i; j < A.order; ++j) {
            if (i != j) {
                disturbed(i, j) = random_element<TypeParam>([&] { return uniform(random); });
            } else if constexpr (is_complex_element<TypeParam>) {
                disturbed(i, i).imag(1);
            }
        }
    }
    EXPECT_TRUE(same_bits(solve(A).values, solve(disturbed).values));
    EXPECT_TRUE(same_bits(solve(A).vectors, solve(disturbed).vectors));
}

TYPED_TEST(HermitianJacobi, SortsADiagonalStably) {
    const auto result = solve(diagonal_matrix<TypeParam>({2, -1, 2, 0.0, -0.0}));
    EXPECT_THAT(result.values, ElementsAre(-1, 0, 0, 2, 2));
    EXPECT_FALSE(std::signbit(result.values[1]));
    const std::size_t sources[] = {1, 3, 4, 0, 2};
    EXPECT_EQ(result.vectors, filled<TypeParam>(5, [&](std::size_t i, std::size_t j) {
                                  return i == sources[j];
                              }).elements);
}

// Products of two such elements leave the range, and the negligibility test must not form them.
TEST(HermitianJacobiRange, RotatesAtTheEndsOfTheRange) {
    struct Case {
        std::vector<double> lower; // a00, a10, a11
        std::vector<double> values;
    };
    const Case cases[] = {
        {{0, 1, 0}, {-1, 1}},
        {{0, most, 0}, {-most, most}},
        {{0, smallest, 0}, {-smallest, smallest}},
        {{most / 2, most / 2, most / 2}, {0, most}},
        {{2 * smallest, 2 * smallest, 2 * smallest}, {0, 4 * smallest}},
        {{most, 0x1p-1000, 0x1p-1000}, {0x1p-1000, most}},
        {{1, smallest, 1}, {1, 1}},
        {{most, smallest, 0}, {0, most}}, // the division by the scale underflows
        {{smallest_normal, 0x1p-1030, smallest_normal},
         {smallest_normal - 0x1p-1030, smallest_normal + 0x1p-1030}},
    };
    for (const Case& c : cases) {
        const auto& a = c.lower;
        EXPECT_EQ(solve<double>({2, {a[0], a[1], a[1], a[2]}}).values, c.values)
            << ::testing::PrintToString(a);
        const Complex off(0, a[1]);
        EXPECT_EQ(solve<Complex>({2, {a[0], std::conj(off), off, a[2]}}).values, c.values)
            << ::testing::PrintToString(a);
    }
}

TYPED_TEST(HermitianJacobi, ReportsEigenvaluesBeyondTheRange) {
    expect_error<std::runtime_error>(
        [] {
            solve<TypeParam>({2, {most, most, most, most}});
        },
        "eigh/eigvalsh - eigenvalue overflow");
}

TYPED_TEST(HermitianJacobi, NamesTheOperationThatDoesNotConverge) {
    // Not a number is never negligible and never rotated away.
    const TypeParam nan = std::numeric_limits<double>::quiet_NaN();
    for (const bool vectors : {true, false}) {
        expect_solver_error(
            [&] {
                solve<TypeParam>({3, {1, 0, 0, nan, 1, 0, 0, 0, 1}}, vectors);
            },
            64, "Jacobi sweep limit reached", vectors ? "tessaline.eigh" : "tessaline.eigvalsh",
            "eigh/eigvalsh - Jacobi iteration did not converge for order 3",
            ErrorReason::non_convergence);
    }
}

} // namespace
} // namespace Tessaline
