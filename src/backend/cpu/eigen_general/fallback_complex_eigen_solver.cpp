// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"

#include "backend/cpu/eigen_general/balancing.h"
#include "backend/cpu/eigen_general/failures.h"
#include "backend/cpu/eigen_general/limits.h"
#include "backend/cpu/eigen_general/pair_recovery.h"
#include "backend/cpu/eigen_general/schur.h"
#include "backend/cpu/runtime/stop_point.h"

#include <cmath>
#include <limits>
#include <stdexcept>

namespace Tessaline::CpuFallback {

namespace {

bool is_within(Complex value, double largest) {
    return std::abs(value.real()) <= largest && std::abs(value.imag()) <= largest;
}

/// A part rounded to the type of the results.
template <typename StorageReal>
double rounded(double part) {
    auto stored = static_cast<StorageReal>(part);
    // At -O2 and above g++ 12 takes two neighbouring double(float(x)) for a vector and that vector
    // for the unrounded one. It cannot see through this.
    asm("" : "+x"(stored));
    return stored;
}
template <typename StorageReal>
Complex rounded(Complex value) {
    return {rounded<StorageReal>(value.real()), rounded<StorageReal>(value.imag())};
}

template <typename T>
std::vector<Complex> row_major_copy(DenseComplexIntlvMatrixView<const std::complex<T>> A) {
    const bool by_rows = A.layout == DataMatrixLayout::row_major;
    std::vector<Complex> copy;
    copy.reserve(A.rows * A.cols);
    for (std::uint64_t i = 0; i < A.rows; ++i) {
        stop_point();
        for (std::uint64_t j = 0; j < A.cols; ++j) {
            copy.emplace_back(A.data[by_rows ? i * A.cols + j : j * A.rows + i]);
        }
    }
    return copy;
}

/// One solve. H is two to -scaling_exponent times the balanced input.
template <typename StorageReal>
class EigenSolver {
  public:
    using Element = std::complex<StorageReal>;
    using Limits = std::numeric_limits<StorageReal>;

    EigenSolver(std::vector<Complex> input, std::size_t n, EigenvalueScale scale)
        : scale_(scale),
          schur_(input, n),
          exponents_(balance(schur_.H, n)),
          scaling_exponent_(exact_scaling_exponent(schur_.H)),
          input_(std::move(input)),
          substitution_(n, Limits::epsilon(), Limits::denorm_min()),
          solution_(n),
          vector_(n) {
        CpuFallback::scale(schur_.H, -scaling_exponent_);
    }

    void solve(Element* eigenvalues, Element* eigenvectors) {
        const double tolerance = deflation_tolerance<StorageReal>;
        const double guard =
            input_.exponent + std::log2(input_.norm) + std::log2(tolerance) - scaling_exponent_;
        Deflation deflation(tolerance, guard, exponents_);
        reduce_to_triangular(schur_, deflation, Limits::epsilon());
        for (std::size_t k = 0; k < schur_.n; ++k) {
            stop_point();
            const Complex lambda = eigenvalue(k);
            recover_vector(lambda, k);
            check_pair(lambda);
            eigenvalues[k] = Element(lambda);
            std::copy(vector_.begin(), vector_.end(), eigenvectors + k * schur_.n);
        }
    }

  private:
    /// Eigenvalue k as it is returned, rounded to the type of the results.
    Complex eigenvalue(std::size_t k) const {
        const Complex diagonal = schur_.H[k * schur_.n + k];
        const Complex lambda = scaled(diagonal, unit_exponent());
        if (!is_within(lambda, Limits::max())) {
            throw_solver_failure(std::string("eigenvalue is outside the finite ") +
                                 scalar_metadata(ElementTraits<Element>::scalar_type).name +
                                 " range");
        }
        return rounded<StorageReal>(lambda);
    }

    /// Sets `vector_` to the eigenvector as it is returned, in the type of the results.
    void recover_vector(Complex lambda, std::size_t k) {
        const auto solution = std::span(solution_).first(k + 1);
        substitution_.solve(schur_, scaled(lambda, -unit_exponent()), solution);
        restore_coordinates(schur_, exponents_, solution, vector_);
        for (Complex& element : vector_) {
            if (!is_within(element, Limits::max())) {
                fail_recovery();
            }
            element = rounded<StorageReal>(element);
        }
        const double norm = chain_norm(vector_);
        if (norm == 0 || !(norm <= Limits::max())) {
            fail_recovery();
        }
        const auto reciprocal = static_cast<StorageReal>(1 / norm);
        for (Complex& element : vector_) {
            element = Complex(Element(element) * reciprocal);
        }
    }

    void check_pair(Complex lambda) {
        const int original_exponent = scaling_exponent_ - unit_exponent();
        const double residual =
            input_.residual(scaled(lambda, original_exponent - input_.exponent), vector_);
        if (!(residual <= residual_tolerance<StorageReal>)) {
            throw_solver_failure("normalised eigenpair residual " + std::to_string(residual) +
                                 " exceeds tolerance " +
                                 std::to_string(residual_tolerance<StorageReal>));
        }
    }

    [[noreturn]] static void fail_recovery() {
        throw_solver_failure("eigenvector recovery produced a non-finite value");
    }

    /// Returned eigenvalues are those of H times two to this.
    int unit_exponent() const {
        return scale_ == EigenvalueScale::original ? scaling_exponent_ : 0;
    }

    EigenvalueScale scale_;
    SchurForm schur_;
    std::vector<int> exponents_; ///< of the balancing
    int scaling_exponent_;
    ScaledInput input_;
    BackSubstitution substitution_;
    std::vector<Complex> solution_; ///< of the triangular system
    std::vector<Complex> vector_;   ///< the eigenvector at hand
};

} // namespace

template <typename T>
void solve_complex_eigen(DenseComplexIntlvMatrixView<const std::complex<T>> A,
                         HostEigenVals<std::complex<T>, std::complex<T>>& result,
                         EigenvalueScale scale) {
    const std::uint64_t n = result.size();
    if (A.rows != n || A.cols != n) {
        throw std::invalid_argument("SimdEngine::eigen - incompatible shapes");
    }
    if (n == 0) {
        return;
    }
    auto input = row_major_copy(A);
    if (!are_finite(input)) {
        throw_solver_failure("input contains a non-finite value");
    }
    stop_point();
    EigenSolver<T>(std::move(input), n, scale).solve(result.eigenvalues(), result.eigenvectors());
}

template void solve_complex_eigen<float>(DenseComplexIntlvMatrixView<const std::complex<float>>,
                                         HostEigenVals<std::complex<float>, std::complex<float>>&,
                                         EigenvalueScale);
template void
solve_complex_eigen<double>(DenseComplexIntlvMatrixView<const std::complex<double>>,
                            HostEigenVals<std::complex<double>, std::complex<double>>&,
                            EigenvalueScale);

} // namespace Tessaline::CpuFallback
