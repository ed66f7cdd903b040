// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which kernel carries out which floating operation for operands stored as T. A family of kernels
// is a class template of static functions, defined and instantiated in its own source; adding a
// kernel takes its line here.

#include "backend/common/floating_operation.h"
#include "backend/cpu/floating/comparisons.h"
#include "backend/cpu/floating/eigen.h"
#include "backend/cpu/floating/elementwise.h"
#include "backend/cpu/floating/lu.h"
#include "backend/cpu/floating/matrix_power.h"
#include "backend/cpu/floating/products.h"
#include "backend/cpu/floating/reductions.h"
#include "backend/cpu/floating/structure.h"
#include "backend/cpu/floating/structured_logdet.h"
#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// Resolves its operands, and computes by the kernels of a table what goes by vectors.
using FloatingKernel = void (*)(BackendExecutionBindings&, const UnfusedTable&);

/// The conjugate of real elements, which does not even look at them.
inline void leave_real_elements(BackendExecutionBindings&, const UnfusedTable&) {}

class FloatingKernelTable {
  public:
    constexpr void set(FloatingOperation operation, FloatingKernel kernel) {
        const auto index = static_cast<std::size_t>(operation);
        kernels_[index] = kernel;
        is_set_[index] = true;
    }

    constexpr bool is_complete() const { return std::ranges::count(is_set_, false) == 0; }

    /// Null for an index that no operation has.
    constexpr FloatingKernel find(FloatingOperation operation) const {
        const auto index = static_cast<std::size_t>(operation);
        return index < kernels_.size() ? kernels_[index] : nullptr;
    }

  private:
    std::array<FloatingKernel, floating_operation_count> kernels_{};
    /// With sanitizers an address is no constant that could be compared with null.
    std::array<bool, floating_operation_count> is_set_{};
};

template <typename T>
constexpr FloatingKernelTable make_floating_kernel_table() {
    FloatingKernelTable table;
    table.set(FloatingOperation::sqrt, Resolved<FloatingElementwise<T>::sqrt>::run);
    if constexpr (is_complex_element<T>) {
        table.set(FloatingOperation::conjugate, Resolved<FloatingElementwise<T>::conjugate>::run);
    } else {
        table.set(FloatingOperation::conjugate, leave_real_elements);
    }
    table.set(FloatingOperation::multiply, Resolved<FloatingElementwise<T>::multiply>::run);
    table.set(FloatingOperation::add, Resolved<FloatingElementwise<T>::add>::run);
    table.set(FloatingOperation::subtract, Resolved<FloatingElementwise<T>::subtract>::run);
    table.set(FloatingOperation::scale, Resolved<FloatingElementwise<T>::scale>::run);
    table.set(FloatingOperation::divide, Resolved<FloatingElementwise<T>::divide>::run);
    table.set(FloatingOperation::sum, Resolved<FloatingReductions<T>::sum>::run);
    table.set(FloatingOperation::inner, Resolved<FloatingReductions<T>::inner>::run);
    table.set(FloatingOperation::trace, Resolved<FloatingReductions<T>::trace>::run);
    table.set(FloatingOperation::norm, Resolved<FloatingReductions<T>::norm>::run);
    table.set(FloatingOperation::matmul, Resolved<FloatingProducts<T>::matmul>::run);
    table.set(FloatingOperation::matvec, Resolved<FloatingProducts<T>::matvec>::run);
    table.set(FloatingOperation::transpose, Resolved<FloatingStructure<T>::transpose>::run);
    table.set(FloatingOperation::adjoint, Resolved<FloatingStructure<T>::adjoint>::run);
    table.set(FloatingOperation::kron, Resolved<FloatingStructure<T>::kron>::run);
    table.set(FloatingOperation::outer, Resolved<FloatingStructure<T>::outer>::run);
    table.set(FloatingOperation::partial_trace_left,
              Resolved<FloatingStructure<T>::partial_trace_left>::run);
    table.set(FloatingOperation::partial_trace_right,
              Resolved<FloatingStructure<T>::partial_trace_right>::run);
    table.set(FloatingOperation::eye, Resolved<FloatingStructure<T>::eye>::run);
    table.set(FloatingOperation::is_unitary, Resolved<FloatingComparisons<T>::is_unitary>::run);
    table.set(FloatingOperation::vector_equal, Resolved<FloatingComparisons<T>::vector_equal>::run);
    table.set(FloatingOperation::lu_factor, Resolved<FloatingLu<T>::lu_factor>::run);
    table.set(FloatingOperation::solve, Resolved<FloatingLu<T>::solve>::run);
    table.set(FloatingOperation::logdet, Resolved<FloatingLu<T>::logdet>::run);
    table.set(FloatingOperation::slogdet, Resolved<StructuredLogdet<T>::slogdet>::run);
    table.set(FloatingOperation::logdet_positive_definite,
              Resolved<StructuredLogdet<T>::logdet_positive_definite>::run);
    table.set(FloatingOperation::eig, Resolved<FloatingEigen<T>::eig>::run);
    table.set(FloatingOperation::principal_eigenvector,
              Resolved<FloatingEigen<T>::principal_eigenvector>::run);
    table.set(FloatingOperation::eigh, Resolved<FloatingEigen<T>::eigh>::run);
    table.set(FloatingOperation::eigvalsh, Resolved<FloatingEigen<T>::eigvalsh>::run);
    table.set(FloatingOperation::matrix_power, Resolved<FloatingMatrixPower<T>::matrix_power>::run);
    return table;
}

} // namespace Tessaline
