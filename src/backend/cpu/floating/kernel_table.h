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

/// A kernel resolves its operands itself.
using FloatingKernel = void (*)(BackendExecutionBindings&);

class FloatingKernelTable {
  public:
    constexpr FloatingKernel& operator[](FloatingOperation operation) {
        return kernels_[static_cast<std::size_t>(operation)];
    }

    constexpr bool is_complete() const { return std::ranges::count(kernels_, nullptr) == 0; }

    /// Null for an index that no operation has.
    constexpr FloatingKernel find(FloatingOperation operation) const {
        const auto index = static_cast<std::size_t>(operation);
        return index < kernels_.size() ? kernels_[index] : nullptr;
    }

  private:
    std::array<FloatingKernel, floating_operation_count> kernels_{};
};

template <typename T>
constexpr FloatingKernelTable make_floating_kernel_table() {
    FloatingKernelTable table;
    table[FloatingOperation::sqrt] = FloatingElementwise<T>::sqrt;
    table[FloatingOperation::conjugate] = FloatingElementwise<T>::conjugate;
    table[FloatingOperation::multiply] = FloatingElementwise<T>::multiply;
    table[FloatingOperation::add] = FloatingElementwise<T>::add;
    table[FloatingOperation::subtract] = FloatingElementwise<T>::subtract;
    table[FloatingOperation::scale] = FloatingElementwise<T>::scale;
    table[FloatingOperation::divide] = FloatingElementwise<T>::divide;
    table[FloatingOperation::sum] = FloatingReductions<T>::sum;
    table[FloatingOperation::inner] = FloatingReductions<T>::inner;
    table[FloatingOperation::trace] = FloatingReductions<T>::trace;
    table[FloatingOperation::norm] = FloatingReductions<T>::norm;
    table[FloatingOperation::matmul] = FloatingProducts<T>::matmul;
    table[FloatingOperation::matvec] = FloatingProducts<T>::matvec;
    table[FloatingOperation::transpose] = FloatingStructure<T>::transpose;
    table[FloatingOperation::adjoint] = FloatingStructure<T>::adjoint;
    table[FloatingOperation::kron] = FloatingStructure<T>::kron;
    table[FloatingOperation::outer] = FloatingStructure<T>::outer;
    table[FloatingOperation::partial_trace_left] = FloatingStructure<T>::partial_trace_left;
    table[FloatingOperation::partial_trace_right] = FloatingStructure<T>::partial_trace_right;
    table[FloatingOperation::eye] = FloatingStructure<T>::eye;
    table[FloatingOperation::is_unitary] = FloatingComparisons<T>::is_unitary;
    table[FloatingOperation::vector_equal] = FloatingComparisons<T>::vector_equal;
    table[FloatingOperation::lu_factor] = FloatingLu<T>::lu_factor;
    table[FloatingOperation::solve] = FloatingLu<T>::solve;
    table[FloatingOperation::logdet] = FloatingLu<T>::logdet;
    table[FloatingOperation::slogdet] = StructuredLogdet<T>::slogdet;
    table[FloatingOperation::logdet_positive_definite] =
        StructuredLogdet<T>::logdet_positive_definite;
    table[FloatingOperation::eig] = FloatingEigen<T>::eig;
    table[FloatingOperation::principal_eigenvector] = FloatingEigen<T>::principal_eigenvector;
    table[FloatingOperation::eigh] = FloatingEigen<T>::eigh;
    table[FloatingOperation::eigvalsh] = FloatingEigen<T>::eigvalsh;
    table[FloatingOperation::matrix_power] = FloatingMatrixPower<T>::matrix_power;
    return table;
}

} // namespace Tessaline
