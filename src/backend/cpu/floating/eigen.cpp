// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/eigen.h"

#include "backend/cpu/eigen_general/fallback_complex_eigen_solver.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/floating/operands.h"
#include "backend/cpu/floating/structured_operand.h"
#include "backend/cpu/lu/pivot_magnitude.h"
#include "backend/cpu/runtime/stop_point.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// The real and the complex type of the precision in which a policy computes.
template <typename T>
using RealOf = Component<ComputeOf<T>>;
template <typename T>
using ComplexOf = std::complex<RealOf<T>>;

template <typename T>
using EigenPairs = HostEigenVals<ComplexOf<T>, ComplexOf<T>>;

/// Fills `pairs` with those of A, whose real elements are embedded in the complex numbers.
template <typename T>
void solve_general(const FloatingMatrix<const T>& A, CpuFallback::EigenvalueScale scale,
                   EigenPairs<T>& pairs) {
    std::vector<ComplexOf<T>> embedded;
    embedded.reserve(A.rows * A.cols);
    for (std::uint64_t line = 0; line < A.rows; ++line) {
        stop_point();
        for (std::uint64_t index = line * A.cols; index < (line + 1) * A.cols; ++index) {
            embedded.emplace_back(widened(A.data[index]));
        }
    }
    CpuFallback::solve_complex_eigen<RealOf<T>>({embedded.data(), A.rows, A.cols, A.layout}, pairs,
                                                scale);
}

/// The index of the eigenvalue of greatest magnitude, the first of equal ones.
template <typename C>
std::uint64_t index_of_greatest(std::span<const C> eigenvalues) {
    std::uint64_t best = 0;
    auto best_magnitude = CpuFallback::pivot_magnitude(eigenvalues[0]);
    for (std::uint64_t index = 1; index < eigenvalues.size(); ++index) {
        const auto magnitude = CpuFallback::pivot_magnitude(eigenvalues[index]);
        if (magnitude.exceeds(best_magnitude)) {
            best = index;
            best_magnitude = magnitude;
        }
    }
    return best;
}

/// Where a complex vector goes, interleaved or split.
template <typename Real>
class ComplexVectorResult {
  public:
    using Complex = std::complex<Real>;

    ComplexVectorResult(BackendExecutionBindings& bindings, OperandRole role, std::uint64_t size) {
        auto& entity = FloatingOperandDetail::writable<VectorEntity>(bindings, role);
        if (entity.descriptor().complex_layout() == DataComplexLayout::split) {
            real_ = FloatingOperandDetail::elements<Real>(entity, BufferRole::real, size);
            imaginary_ = FloatingOperandDetail::elements<Real>(entity, BufferRole::imaginary, size);
        } else {
            interleaved_ = FloatingOperandDetail::elements<Complex>(entity, BufferRole::data, size);
        }
    }

    void store(std::span<const Complex> vector) const {
        for (std::size_t i = 0; i < vector.size(); ++i) {
            if (interleaved_ != nullptr) {
                interleaved_[i] = vector[i];
            } else {
                real_[i] = vector[i].real();
                imaginary_[i] = vector[i].imag();
            }
        }
    }

  private:
    Complex* interleaved_ = nullptr; ///< null for a split vector
    Real* real_ = nullptr;
    Real* imaginary_ = nullptr;
};

/// The eigenvalues in the type of the result. Raises SolverError where one does not fit.
template <typename Real>
std::vector<Real> rounded_eigenvalues(const std::vector<double>& values, FloatingOperation name) {
    std::vector<Real> rounded;
    rounded.reserve(values.size());
    for (const double value : values) {
        rounded.push_back(static_cast<Real>(value));
        if (!std::isfinite(rounded.back())) {
            throw SolverError("CPU", -1, "eigenvalue overflow", operation_id(name).name(),
                              "eigh/eigvalsh - eigenvalue is outside the finite result dtype range",
                              ErrorReason::solver_failure);
        }
    }
    return rounded;
}

} // namespace

template <typename T>
void FloatingEigen<T>::eig(BackendExecutionBindings& bindings) {
    const auto A = input_matrix<T>(bindings, input_role(0));
    auto& entity = FloatingOperandDetail::writable<EigenValsEntity>(bindings, output_role(0));
    auto& buffers = erased_buffers(entity, floating_kernel_name);
    auto* values =
        require_buffer_data<ComplexOf<T>>(buffers, BufferRole::eigenvalues, A.rows, "eig values");
    auto* vectors = require_buffer_data<ComplexOf<T>>(
        buffers, BufferRole::eigenvectors, checked_element_count(A.rows, A.rows), "eig vectors");
    EigenPairs<T> pairs(A.rows);
    solve_general(A, CpuFallback::EigenvalueScale::original, pairs);
    std::copy_n(pairs.eigenvalues(), A.rows, values);
    std::copy_n(pairs.eigenvectors(), A.rows * A.rows, vectors);
}

template <typename T>
void FloatingEigen<T>::principal_eigenvector(BackendExecutionBindings& bindings) {
    const auto A = input_matrix<T>(bindings, input_role(0));
    const ComplexVectorResult<RealOf<T>> result(bindings, output_role(0), A.rows);
    if (A.rows == 0) {
        return;
    }
    EigenPairs<T> pairs(A.rows);
    solve_general(A, CpuFallback::EigenvalueScale::internal, pairs);
    const auto index = index_of_greatest<ComplexOf<T>>({pairs.eigenvalues(), A.rows});
    result.store({pairs.eigenvectors() + index * A.rows, A.rows});
}

template <typename T>
void FloatingEigen<T>::eigh(BackendExecutionBindings& bindings) {
    using Compute = ComputeOf<T>;
    CpuStructured::WorkingCopy<T> matrix(bindings);
    const std::uint64_t n = matrix.order();
    const auto values = output_vector<RealOf<T>>(bindings, output_role(0), n);
    const auto vectors = output_matrix<Compute>(bindings, output_role(1), {n, n});
    matrix.validate(FloatingOperation::eigh, true);
    const auto result =
        CpuStructured::eigen<CpuStructured::WorkingElement<T>>(matrix.elements(), n, true);
    std::ranges::copy(rounded_eigenvalues<RealOf<T>>(result.values, FloatingOperation::eigh),
                      values.begin());
    for (std::uint64_t i = 0; i < n; ++i) {
        for (std::uint64_t j = 0; j < n; ++j) {
            vectors(i, j) = static_cast<Compute>(result.vectors[i * n + j]);
        }
    }
}

template <typename T>
void FloatingEigen<T>::eigvalsh(BackendExecutionBindings& bindings) {
    CpuStructured::WorkingCopy<T> matrix(bindings);
    const auto values = output_vector<RealOf<T>>(bindings, output_role(0), matrix.order());
    matrix.validate(FloatingOperation::eigvalsh, true);
    const auto result = CpuStructured::eigen<CpuStructured::WorkingElement<T>>(
        matrix.elements(), matrix.order(), false);
    std::ranges::copy(rounded_eigenvalues<RealOf<T>>(result.values, FloatingOperation::eigvalsh),
                      values.begin());
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingEigen<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
