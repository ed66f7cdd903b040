// SPDX-License-Identifier: Apache-2.0
// The floating kernels of eigenproblems and matrix powers, on operands of every policy.

#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/floating/floating_test_support.h"
#include "backend/cpu/lu/lu_problems.h"
#include "support/expect_error.h"

#include <gmock/gmock.h>

namespace Tessaline {
namespace {

using namespace Testing;
using ::testing::Each;

constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;
constexpr DataMatrixLayout column_major = DataMatrixLayout::column_major;
constexpr std::uint64_t orders[] = {0, 1, 2, 5, 10};

template <typename T>
using RealOf = Component<ComputeOf<T>>;
template <typename T>
using ComplexOf = std::complex<RealOf<T>>;
template <typename T>
using PairsOf = HostEigenVals<ComplexOf<T>, ComplexOf<T>>;

/// Eigenvalues, then vectors.
template <typename Complex>
std::vector<Complex> all_elements(const HostEigenVals<Complex, Complex>& pairs) {
    const std::uint64_t n = pairs.size();
    std::vector<Complex> elements(pairs.eigenvalues(), pairs.eigenvalues() + n);
    elements.insert(elements.end(), pairs.eigenvectors(), pairs.eigenvectors() + n * n);
    return elements;
}

template <typename T>
struct FloatingEigenKernels : ::testing::Test {

    static Grid<T> random_square(std::uint64_t n, bool with_specials = false) {
        CounterRandom random(n);
        return random_grid<T>(n, n, random, with_specials);
    }

    static Grid<T> hermitian(const Grid<T>& A) {
        return {
            A.rows, A.cols, [&](std::uint64_t i, std::uint64_t j) {
                const ComputeOf<T> lower = i > j ? A(i, j) : A(j, i);
                if constexpr (is_complex_element<T>) {
                    return i == j ? ComputeOf<T>(lower.real()) : i > j ? lower : std::conj(lower);
                } else {
                    return lower;
                }
            }};
    }

    /// The kernel's own solver on the widened matrix.
    static std::unique_ptr<PairsOf<T>> general_pairs(const Grid<T>& A,
                                                     CpuFallback::EigenvalueScale scale) {
        std::vector<ComplexOf<T>> widened;
        for (const T element : A.elements) {
            widened.push_back(static_cast<ComputeOf<T>>(element));
        }
        auto pairs = std::make_unique<PairsOf<T>>(A.rows);
        CpuFallback::solve_complex_eigen<RealOf<T>>({widened.data(), A.rows, A.cols, row_major},
                                                    *pairs, scale);
        return pairs;
    }

    static void run(FloatingOperation operation, const Grid<T>& A, const OperandBinding& output,
                    const OperandBinding* second_output = nullptr,
                    DataMatrixLayout layout = row_major) {
        const auto matrix = Operand<T>::matrix(A, layout);
        auto bindings = bindings_of({matrix.read()}, output);
        if (second_output != nullptr) {
            bindings.operands.insert(output_role(1), *second_output);
        }
        run_floating_kernel<T>(operation, bindings);
    }
};
TYPED_TEST_SUITE(FloatingEigenKernels, FloatingTypes);

TYPED_TEST(FloatingEigenKernels, FillASetWithTheSolversPairs) {
    for (const auto n : orders) {
        const auto A = this->random_square(n);
        const auto expected = this->general_pairs(A, CpuFallback::EigenvalueScale::original);
        for (const auto layout : orders_of<TypeParam>()) {
            for (const auto vector_layout : {row_major, column_major}) {
                PairsOf<TypeParam> pairs(n, vector_layout);
                const OperandBinding output = std::ref<EigenValsEntity>(pairs);
                this->run(FloatingOperation::eig, A, output, nullptr, layout);
                EXPECT_TRUE(same_bits(all_elements(pairs), all_elements(*expected))) << n;
            }
        }
    }
}

// A failed solver leaves the set as it was, though the solver had found the first pair.
TYPED_TEST(FloatingEigenKernels, LeaveTheSetAloneWhenTheSolverFails) {
    const Grid<TypeParam> A(2, 2, [](std::uint64_t i, std::uint64_t j) {
        using Real = RealOf<TypeParam>;
        return ComputeOf<TypeParam>(i == 1 && j == 1 ? std::numeric_limits<Real>::infinity()
                                                     : Real(1));
    });
    PairsOf<TypeParam> pairs(2);
    std::fill_n(pairs.eigenvalues(), 2, -7);
    std::fill_n(pairs.eigenvectors(), 4, -7);
    const OperandBinding output = std::ref<EigenValsEntity>(pairs);
    expect_solver_error([&] { this->run(FloatingOperation::eig, A, output); }, -1,
                        "input contains a non-finite value", "SimdEngine::eigen",
                        "SimdEngine::eigen - input contains a non-finite value",
                        ErrorReason::solver_failure);
    EXPECT_THAT(all_elements(pairs), Each(ComplexOf<TypeParam>(-7)));
}

TYPED_TEST(FloatingEigenKernels, RefuseASetOfAnotherPrecisionOrOrder) {
    using Complex = ComplexOf<TypeParam>;
    using Other = std::conditional_t<std::is_same_v<Complex, std::complex<float>>,
                                     std::complex<double>, std::complex<float>>;
    HostEigenVals<Other, Other> imprecise(2);
    HostEigenVals<Complex, Complex> small(1);
    for (EigenValsEntity* set :
         {static_cast<EigenValsEntity*>(&imprecise), static_cast<EigenValsEntity*>(&small)}) {
        const OperandBinding output = std::ref(*set);
        expect_error<std::logic_error>(
            [&] { this->run(FloatingOperation::eig, this->random_square(2), output); },
            "eig values - storage buffer type, alignment or count mismatch");
    }
}

TYPED_TEST(FloatingEigenKernels, SelectTheVectorOfTheGreatestEigenvalue) {
    using Complex = ComplexOf<TypeParam>;
    for (const auto n : orders) {
        const auto A = this->random_square(n);
        const auto pairs = this->general_pairs(A, CpuFallback::EigenvalueScale::internal);
        std::uint64_t greatest = 0;
        for (std::uint64_t k = 1; k < n; ++k) {
            if (std::abs(pairs->eigenvalues()[k]) > std::abs(pairs->eigenvalues()[greatest])) {
                greatest = k;
            }
        }
        const Grid<Complex> expected(n, 1, [&](std::uint64_t i, std::uint64_t) {
            return pairs->eigenvectors()[greatest * n + i];
        });
        for (const auto layout : orders_of<TypeParam>()) {
            auto interleaved = Operand<Complex>::vector(expected);
            interleaved.assign({n, 1, [](auto, auto) { return Complex(-7); }});
            this->run(FloatingOperation::principal_eigenvector, A, interleaved.written(), nullptr,
                      layout);
            EXPECT_TRUE(same_bits(interleaved.grid().elements, expected.elements)) << n;
        }
        const auto split =
            StorageFactory::host_vector(PolicyOf<Complex>::type(), n, DataComplexLayout::split);
        const OperandBinding output = std::ref(*split);
        this->run(FloatingOperation::principal_eigenvector, A, output);
        auto& buffers = erased_buffers(*split, "test");
        using Real = RealOf<TypeParam>;
        const auto* real = require_buffer_data<Real>(buffers, BufferRole::real, n, "test");
        const auto* imaginary =
            require_buffer_data<Real>(buffers, BufferRole::imaginary, n, "test");
        for (std::uint64_t i = 0; i < n; ++i) {
            EXPECT_EQ(Complex(real[i], imaginary[i]), expected(i));
        }
    }
}

TYPED_TEST(FloatingEigenKernels, SelectTheFirstOfEqualMagnitudes) {
    using Complex = ComplexOf<TypeParam>;
    const float diagonal[] = {1, -3, 3, 2};
    const Grid<TypeParam> A(4, 4, [&](std::uint64_t i, std::uint64_t j) {
        return ComputeOf<TypeParam>(i == j ? diagonal[i] : 0);
    });
    auto vector = Operand<Complex>::vector({4, 1, [](auto, auto) { return Complex(-7); }});
    this->run(FloatingOperation::principal_eigenvector, A, vector.written());
    EXPECT_EQ(vector.grid().elements, (std::vector<Complex>{0, 1, 0, 0}));
}

TYPED_TEST(FloatingEigenKernels, RoundTheHermitianSolversPairsOnce) {
    using Compute = ComputeOf<TypeParam>;
    using Real = RealOf<TypeParam>;
    using Working = std::conditional_t<is_complex_element<TypeParam>, std::complex<double>, double>;
    for (const auto n : orders) {
        const auto A = this->hermitian(this->random_square(n));
        std::vector<Working> working;
        for (const TypeParam element : A.elements) {
            working.push_back(Working(static_cast<Compute>(element)));
        }
        const auto solved = CpuStructured::eigen<Working>(working, n, true);
        const Grid<Real> values(n, 1, [&](auto i, auto) { return Real(solved.values[i]); });
        const Grid<Compute> vectors(
            n, n, [&](auto i, auto j) { return Compute(solved.vectors[i * n + j]); });
        for (const auto layout : orders_of<TypeParam>()) {
            auto found_values = Operand<Real>::vector({n, 1, [](auto, auto) { return Real(-7); }});
            auto found_vectors =
                Operand<Compute>::matrix({n, n, [](auto, auto) { return Compute(-7); }}, layout);
            const OperandBinding second = found_vectors.written();
            this->run(FloatingOperation::eigh, A, found_values.written(), &second, layout);
            EXPECT_TRUE(same_bits(found_values.grid().elements, values.elements)) << n;
            EXPECT_TRUE(same_bits(found_vectors.grid().elements, vectors.elements)) << n;
            found_values.assign({n, 1, [](auto, auto) { return Real(-7); }});
            this->run(FloatingOperation::eigvalsh, A, found_values.written(), nullptr, layout);
            EXPECT_TRUE(same_bits(found_values.grid().elements, values.elements)) << n;
        }
    }
}

TYPED_TEST(FloatingEigenKernels, WriteNoOutputWhenTheHermitianSolverFails) {
    using Compute = ComputeOf<TypeParam>;
    using Real = RealOf<TypeParam>;
    const Real infinity = std::numeric_limits<Real>::infinity();
    for (const bool with_vectors : {true, false}) {
        const auto operation = with_vectors ? FloatingOperation::eigh : FloatingOperation::eigvalsh;
        const std::string name = with_vectors ? "tessaline.eigh" : "tessaline.eigvalsh";
        auto values = Operand<Real>::vector({2, 1, [](auto, auto) { return Real(-7); }});
        auto vectors =
            Operand<Compute>::matrix({2, 2, [](auto, auto) { return Compute(-7); }}, row_major);
        const OperandBinding second = vectors.written();
        const auto solve = [&](const std::array<Real, 4>& elements) {
            const Grid<TypeParam> A(2, 2,
                                    [&](auto i, auto j) { return Compute(elements[2 * i + j]); });
            this->run(operation, A, values.written(), with_vectors ? &second : nullptr);
        };
        expect_error<std::invalid_argument>(
            [&] {
                solve({1, 0, 0, infinity});
            },
            name + " - input must contain only finite entries");
        expect_error<std::invalid_argument>(
            [&] {
                solve({1, 2, 3, 1});
            },
            name + " - input must be symmetric/Hermitian at (1, 0)");
        const auto largest = static_cast<Real>(
            static_cast<ComputeOf<Component<TypeParam>>>(range_of<Component<TypeParam>>()[0]));
        const auto at_the_end_of_the_range = [&] { solve({largest, largest, largest, largest}); };
        if (std::is_same_v<Real, double>) {
            expect_error<std::runtime_error>(at_the_end_of_the_range,
                                             "eigh/eigvalsh - eigenvalue overflow");
        } else if (!std::isfinite(largest + largest)) {
            expect_solver_error(
                at_the_end_of_the_range, -1, "eigenvalue overflow", name,
                "eigh/eigvalsh - eigenvalue is outside the finite result dtype range",
                ErrorReason::solver_failure);
        }
        EXPECT_THAT(values.grid().elements, Each(Real(-7)));
        EXPECT_THAT(vectors.grid().elements, Each(Compute(-7)));
    }
}

template <typename T>
struct FloatingMatrixPowers : FloatingEigenKernels<T> {
    using Values = Grid<ComputeOf<T>>;

    static Operand<int> exponent(int value) {
        return Operand<int>::scalar({1, 1, [value](auto, auto) { return value; }});
    }
    static Values product(const Values& A, const Values& B) {
        return {A.rows, B.cols, [&](std::uint64_t i, std::uint64_t j) {
                    ComputeOf<T> sum{};
                    for (std::uint64_t k = 0; k < A.cols; ++k) {
                        sum += A(i, k) * B(k, j);
                    }
                    return sum;
                }};
    }
    static Grid<T> rounded(const Values& A) {
        return {A.rows, A.cols, [&](auto i, auto j) { return A(i, j); }};
    }
    static void expect_power(const Grid<T>& A, int power, const Grid<T>& expected) {
        for (const auto in : orders_of<T>()) {
            for (const auto out : orders_of<T>()) {
                expect_result<T>(FloatingOperation::matrix_power,
                                 {Operand<T>::matrix(A, in).read(), exponent(power).read()},
                                 Operand<T>::matrix(expected, out), A, expected);
            }
        }
    }
};
TYPED_TEST_SUITE(FloatingMatrixPowers, FloatingTypes);

TYPED_TEST(FloatingMatrixPowers, MultiplyInComputeTypeAndRoundOnce) {
    using Fixture = FloatingMatrixPowers<TypeParam>;
    using Compute = ComputeOf<TypeParam>;
    for (const std::uint64_t n : orders) {
        CounterRandom random(n);
        const Grid<TypeParam> A(n, n, [&](auto, auto) {
            return random_element<Compute>([&] { return uniform(random); });
        });
        const Grid<Compute> base(n, n, [&](auto i, auto j) { return A(i, j); });
        const Grid<Compute> identity(n, n, [](auto i, auto j) { return Compute(i == j); });
        const auto square = Fixture::product(base, base);
        const auto fourth = Fixture::product(square, square);
        const auto cube = Fixture::product(Fixture::product(identity, base), square);
        Fixture::expect_power(A, 2, Fixture::rounded(Fixture::product(identity, square)));
        Fixture::expect_power(A, 3, Fixture::rounded(cube));
        Fixture::expect_power(A, 4, Fixture::rounded(Fixture::product(identity, fourth)));
        Fixture::expect_power(A, 7, Fixture::rounded(Fixture::product(cube, fourth)));
    }
}

TYPED_TEST(FloatingMatrixPowers, GiveTheIdentityAndTheStoredBitsWithoutAProduct) {
    using Fixture = FloatingMatrixPowers<TypeParam>;
    for (const std::uint64_t n : orders) {
        const auto A = this->random_square(n, true);
        Fixture::expect_power(A, 1, A);
        Fixture::expect_power(A, 0,
                              {n, n, [](auto i, auto j) { return ComputeOf<TypeParam>(i == j); }});
    }
}

// Each element of the square is infinite, and meets a zero of the identity.
TYPED_TEST(FloatingMatrixPowers, TakeTheIdentityForAFactorLikeAnyOther) {
    const auto all = [](RealOf<TypeParam> part) {
        return Grid<TypeParam>(2, 2, [part](auto, auto) {
            if constexpr (is_complex_element<TypeParam>) {
                return ComplexOf<TypeParam>(part, part);
            } else {
                return part;
            }
        });
    };
    using Limits = std::numeric_limits<RealOf<TypeParam>>;
    FloatingMatrixPowers<TypeParam>::expect_power(all(Limits::infinity()), 2,
                                                  all(Limits::quiet_NaN()));
}

TYPED_TEST(FloatingMatrixPowers, RefuseNegativeAndWiderExponents) {
    using Fixture = FloatingMatrixPowers<TypeParam>;
    const auto A = Operand<TypeParam>::matrix(this->random_square(2), row_major);
    const auto result = Operand<TypeParam>::matrix(this->random_square(2), row_major);
    const auto before = result.grid();
    const auto raise = [&](const auto& exponent) {
        auto bindings = bindings_of({A.read(), exponent.read()}, result.written());
        run_floating_kernel<TypeParam>(FloatingOperation::matrix_power, bindings);
    };
    for (const int negative : {-1, std::numeric_limits<int>::min()}) {
        expect_error<std::invalid_argument>([&] { raise(Fixture::exponent(negative)); },
                                            "matrix_power - negative exponent");
    }
    expect_error<std::logic_error>(
        [&] {
            raise(Operand<double>::scalar({1, 1, [](auto, auto) { return 2.0; }}));
        },
        "matrix power exponent - storage buffer type, alignment or count mismatch");
    EXPECT_TRUE(std::ranges::equal(bytes_of(result.grid()), bytes_of(before)));
}

} // namespace
} // namespace Tessaline
