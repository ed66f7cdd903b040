// SPDX-License-Identifier: Apache-2.0
#include "borrowed_operand.h"

#include "tessaline/storage/borrowed_host_entities.h"

#include <memory>
#include <utility>

namespace Tessaline::Python {

namespace {

/// A pointer into an array, with the constness of its use.
template <typename T>
BorrowedPointer<T> borrowed(void* data, bool writable) {
    return writable ? BorrowedPointer<T>(static_cast<T*>(data))
                    : BorrowedPointer<T>(static_cast<const T*>(data));
}

} // namespace

template <typename Entity, typename... Arguments>
auto& BorrowedOperand::emplace(Arguments&&... arguments) {
    static_assert(sizeof(Entity) <= capacity && alignof(Entity) <= alignof(std::max_align_t));
    auto* const entity = std::construct_at(reinterpret_cast<Entity*>(memory_),
                                           std::forward<Arguments>(arguments)...);
    destroy_ = [](void* memory) { std::destroy_at(static_cast<Entity*>(memory)); };
    return *entity;
}

void BorrowedOperand::clear() {
    if (destroy_ != nullptr) {
        std::exchange(destroy_, nullptr)(memory_);
    }
}

template <typename Policy>
OperandBinding BorrowedOperand::borrow_as(void* data, std::span<const std::size_t> extents,
                                          bool writable) {
    using Stored = typename Policy::Stored;
    using Compute = typename Policy::Compute;
    if constexpr (Policy::is_complex) {
        if (extents.empty()) {
            using Part = Component<Stored>;
            using Scalar = BorrowedDenseHostComplexSplitScalar<Part, Component<Compute>>;
            auto* const parts = static_cast<Part*>(data);
            return binding_of<ScalarEntity>(emplace<Scalar>(borrowed<Part>(parts, writable),
                                                            borrowed<Part>(parts + 1, writable)),
                                            writable);
        }
        const auto elements = borrowed<Stored>(data, writable);
        if (extents.size() == 1) {
            using Vector = BorrowedDenseHostComplexInterleavedVector<Stored, Compute>;
            return binding_of<VectorEntity>(emplace<Vector>(elements, extents[0]), writable);
        }
        using Matrix = BorrowedDenseHostComplexInterleavedMatrix<Stored, Compute>;
        return binding_of<MatrixEntity>(emplace<Matrix>(elements, extents[0], extents[1]),
                                        writable);
    } else {
        const auto elements = borrowed<Stored>(data, writable);
        if (extents.empty()) {
            using Scalar = BorrowedDenseHostRealScalar<Stored, Compute>;
            return binding_of<ScalarEntity>(emplace<Scalar>(elements), writable);
        }
        if (extents.size() == 1) {
            using Vector = BorrowedDenseHostRealVector<Stored, Compute>;
            return binding_of<VectorEntity>(emplace<Vector>(elements, extents[0]), writable);
        }
        using Matrix = BorrowedDenseHostRealMatrix<Stored, Compute>;
        return binding_of<MatrixEntity>(emplace<Matrix>(elements, extents[0], extents[1]),
                                        writable);
    }
}

OperandBinding BorrowedOperand::borrow(const DataTypeDescriptor& type, void* data,
                                       std::span<const std::size_t> extents, bool writable) {
    clear();
    return visit_numeric_policy(
        type, [&](auto policy) { return borrow_as<decltype(policy)>(data, extents, writable); });
}

} // namespace Tessaline::Python
