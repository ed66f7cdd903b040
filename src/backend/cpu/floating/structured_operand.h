// SPDX-License-Identifier: Apache-2.0
#pragma once

// The input of a structured solver: a matrix of any policy as a working copy in double precision.

#include "backend/common/floating_operation.h"
#include "backend/cpu/determinants/structured_input.h"
#include "backend/cpu/floating/operands.h"

#include <limits>
#include <vector>

namespace Tessaline::CpuStructured {

/// In what a structured solver works: double for real policies, std::complex<double> for complex
/// ones.
template <typename T>
using WorkingElement = std::conditional_t<is_complex_element<T>, std::complex<double>, double>;

/// The first input, stored as T, and its row-major copy, which a solver may overwrite.
template <typename T>
class WorkingCopy {
    using C = WorkingElement<T>;

  public:
    /// Raises what input_matrix does, also for a matrix that is not square.
    explicit WorkingCopy(BackendExecutionBindings& bindings)
        : source_(square_input(bindings)),
          elements_(checked_element_count(source_.rows, source_.rows)) {
        reload();
    }

    std::uint64_t order() const { return source_.rows; }
    std::span<C> elements() { return elements_; }

    /// Fills the copy with the input again.
    void reload() {
        auto element = elements_.begin();
        for (std::uint64_t i = 0; i < order(); ++i) {
            for (std::uint64_t j = 0; j < order(); ++j) {
                *element++ = static_cast<C>(widened(source_(i, j)));
            }
        }
    }

    /// Checks the copy as CpuStructured::validate does, under the name of an operation. A Hermitian
    /// pair may differ by the order times the precision in which the policy computes.
    void validate(FloatingOperation operation, bool hermitian) const {
        constexpr double epsilon = std::numeric_limits<Component<ComputeOf<T>>>::epsilon();
        CpuStructured::validate<C>(elements_, order(), hermitian,
                                   static_cast<double>(order()) * epsilon,
                                   operation_id(operation).name().c_str());
    }

  private:
    static FloatingMatrix<const T> square_input(BackendExecutionBindings& bindings) {
        const OperandRole role = input_role(0);
        const auto& entity = bound_entity<MatrixEntity>(bindings.operands.at(role));
        const std::uint64_t order = entity.descriptor().rows();
        return input_matrix<T>(bindings, role, {order, order});
    }

    FloatingMatrix<const T> source_;
    std::vector<C> elements_;
};

} // namespace Tessaline::CpuStructured
