// SPDX-License-Identifier: Apache-2.0
#pragma once

// An operand over memory of the caller's, whatever its element type and rank.

#include "tessaline/catalogue/data_type_descriptor.h"
#include "tessaline/execution/operand_binding.h"

#include <cstddef>
#include <span>

namespace Tessaline::Python {

/// An entity's binding, for reading only unless it is writable.
template <typename Entity>
OperandBinding binding_of(Entity& entity, bool writable) {
    return writable ? OperandBinding(std::ref(entity))
                    : OperandBinding(ConstOperandEntityRef<Entity>(entity));
}

/// Made in place, so that a call allocates nothing for it. It stays where it is.
class BorrowedOperand {
  public:
    BorrowedOperand() = default;
    BorrowedOperand(const BorrowedOperand&) = delete;
    BorrowedOperand& operator=(const BorrowedOperand&) = delete;
    ~BorrowedOperand() { clear(); }

    /// Borrows a scalar, vector or row-major matrix, by the number of extents, of a compiled
    /// policy, and returns its binding, for reading only unless it is writable. The memory must
    /// outlive the operand. Raises std::invalid_argument for elements without memory.
    OperandBinding borrow(const DataTypeDescriptor& type, void* data,
                          std::span<const std::size_t> extents, bool writable);

  private:
    template <typename Entity, typename... Arguments>
    auto& emplace(Arguments&&... arguments);
    template <typename Policy>
    OperandBinding borrow_as(void* data, std::span<const std::size_t> extents, bool writable);
    void clear();

    static constexpr std::size_t capacity = 320;

    alignas(std::max_align_t) std::byte memory_[capacity];
    void (*destroy_)(void*) = nullptr;
};

} // namespace Tessaline::Python
