// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which kernel carries out which floating operation for operands stored as T. A family of kernels
// is a class template of static functions, defined and instantiated in its own source; adding a
// kernel takes its line here.

#include "backend/cpu/floating_operation.h"
#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// A kernel resolves its operands itself.
using FloatingKernel = void (*)(BackendExecutionBindings&);

class FloatingKernelTable {
  public:
    constexpr FloatingKernel& operator[](FloatingOperation operation) {
        return kernels_[static_cast<std::size_t>(operation)];
    }

    /// Null for an operation without a kernel and for an index that no operation has.
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
    return table;
}

} // namespace Tessaline
