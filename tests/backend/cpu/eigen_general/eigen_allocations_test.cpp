// SPDX-License-Identifier: Apache-2.0
// Iterative solvers allocate before they iterate: the count depends on the order alone. This
// program replaces the allocator by one that counts.

#include "backend/cpu/eigen_general/eigen_test_matrices.h"
#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/floating/floating_test_support.h"
#include "support/allocation_counter.h"

namespace Tessaline {
namespace {

using namespace Testing;
using Complex = std::complex<double>;

constexpr std::size_t n = 12;
constexpr DataMatrixLayout row_major = DataMatrixLayout::row_major;

template <typename Call>
std::uint64_t allocations_of(const Call& call) {
    const std::uint64_t before = allocation_count();
    call();
    return allocation_count() - before;
}

template <typename C>
SquareMatrix<C> identity() {
    return diagonal_matrix(std::vector<C>(n, 1));
}

/// The number for a matrix without a single iteration, and for one that needs many.
template <typename C, typename Solve>
void expect_same_allocations(const SquareMatrix<C>& hard, const Solve& solve) {
    const auto count = [&](SquareMatrix<C> A) { return allocations_of([&] { solve(A); }); };
    count(hard); // a thread's first product allocates what later ones use
    const std::uint64_t expected = count(identity<C>());
    EXPECT_GT(expected, 0);
    EXPECT_EQ(count(hard), expected);
}

TEST(EigenAllocations, DoNotDependOnTheIterations) {
    CounterRandom random(1);
    const auto A = random_matrix<Complex>(n, random);
    HostEigenVals<Complex, Complex> pairs(n);
    expect_same_allocations(A, [&](SquareMatrix<Complex>& matrix) {
        CpuFallback::solve_complex_eigen<double>({matrix.elements.data(), n, n, row_major}, pairs,
                                                 CpuFallback::EigenvalueScale::original);
    });
    expect_same_allocations(hermitian(A), [](SquareMatrix<Complex>& matrix) {
        CpuStructured::eigen<Complex>(matrix.elements, n, true);
    });
}

TEST(MatrixPowerAllocations, DoNotDependOnTheExponent) {
    const Grid<Float16> zeros(n, n, [](auto, auto) { return 0.0F; });
    const auto matrix = Operand<Float16>::matrix(zeros, row_major);
    const auto exponent = Operand<int>::scalar({1, 1, [](auto, auto) { return 2; }});
    auto large_exponent = Operand<int>::scalar({1, 1, [](auto, auto) { return 1000003; }});
    const auto kernel = [&](const OperandBinding& power) {
        auto bindings = bindings_of({matrix.read(), power}, matrix.written());
        return allocations_of(
            [&] { run_floating_kernel<Float16>(FloatingOperation::matrix_power, bindings); });
    };
    EXPECT_EQ(kernel(exponent.read()), kernel(large_exponent.read()));
}

} // namespace
} // namespace Tessaline
