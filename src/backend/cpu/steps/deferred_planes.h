// SPDX-License-Identifier: Apache-2.0
#pragma once

// Stands in for an interleaved operand where the row of a kernel asks for planes. The planes are
// made when they are first asked for: a kernel that takes interleaved elements as well reads and
// writes the operand itself, and spares the memory and the passes over it.
//
// Belongs to one run, and so to one thread.

#include "backend/cpu/steps/cpu_layout_copy.h"
#include "tessaline/execution/operand_binding.h"
#include "tessaline/storage/dense_storage.h"
#include "tessaline/storage/storage_factory.h"
#include "tessaline/storage/typed_storage.h"

#include <memory>

namespace Tessaline {

namespace DeferredPlanesDetail {

inline HostMemoryOptions memory_of(const DataTopologyDescriptor& topology) {
    return {topology.requested_numa_id(),
            static_cast<HostMemoryPolicy>(topology.host_allocation_policy())};
}

/// Storage as described, filled with zeros.
inline std::unique_ptr<VectorEntity> make_storage(const VectorDescriptor& vector) {
    return StorageFactory::host_vector(vector.type(), vector.size(), vector.complex_layout(),
                                       memory_of(vector.topology()));
}
inline std::unique_ptr<MatrixEntity> make_storage(const MatrixDescriptor& matrix) {
    return StorageFactory::host_matrix(matrix.type(), matrix.rows(), matrix.cols(), matrix.layout(),
                                       matrix.complex_layout(), memory_of(matrix.topology()));
}

} // namespace DeferredPlanesDetail

/// Interface is VectorEntity or MatrixEntity, and Access that to its planes of components T.
template <typename Interface, typename Access, typename T>
class DeferredPlanes : public Interface, public Access {
    using Descriptor = DenseStorageDetail::DescriptorOf<Interface>;

  public:
    const Descriptor& descriptor() const override { return descriptor_; }
    StorageAccess buffer_access() override { return StorageAccess::of<Access>(*this); }
    T* data_real() override { return planes().data_real(); }
    const T* data_real() const override { return planes().data_real(); }
    T* data_imag() override { return planes().data_imag(); }
    const T* data_imag() const override { return planes().data_imag(); }
    std::uint64_t element_count() const override {
        return DenseStorageDetail::element_count(descriptor_);
    }

    /// The interleaved operand, null once there are planes: from then on they hold the contents.
    const OperandBinding* origin() const { return planes_ == nullptr ? &origin_ : nullptr; }

  protected:
    /// `descriptor` is of the planes; they take over the contents of `origin` if `copies`, and are
    /// zeros else.
    DeferredPlanes(Descriptor descriptor, const OperandBinding& origin, bool copies)
        : descriptor_(std::move(descriptor)),
          origin_(origin),
          copies_(copies) {}

  private:
    Access& planes() const {
        if (planes_ == nullptr) {
            auto storage = DeferredPlanesDetail::make_storage(descriptor_);
            if (copies_) {
                copy_complex_layout<T>(bound_entity<Interface>(origin_), *storage);
            }
            planes_ = &typed_access<Access>(*storage);
            storage_ = std::move(storage);
        }
        return *planes_;
    }

    Descriptor descriptor_;
    OperandBinding origin_;
    bool copies_;
    mutable std::unique_ptr<Interface> storage_;
    mutable Access* planes_ = nullptr; ///< of the storage
};

template <typename T>
class DeferredSplitVector final
    : public DenseStorageDetail::VectorShape<
          DeferredPlanes<VectorEntity, DenseComplexSplitVectorAccess<T>, T>> {
  public:
    DeferredSplitVector(VectorDescriptor descriptor, const OperandBinding& origin, bool copies)
        : DeferredSplitVector::VectorShape(std::move(descriptor), origin, copies) {}
};

template <typename T>
class DeferredSplitMatrix final
    : public DenseStorageDetail::MatrixShape<
          DeferredPlanes<MatrixEntity, DenseComplexSplitMatrixAccess<T>, T>> {
  public:
    DeferredSplitMatrix(MatrixDescriptor descriptor, const OperandBinding& origin, bool copies)
        : DeferredSplitMatrix::MatrixShape(std::move(descriptor), origin, copies) {}
};

/// The class that stands in for an operand of a kind.
template <typename Interface, typename T>
using DeferredSplit = std::conditional_t<std::is_same_v<Interface, VectorEntity>,
                                         DeferredSplitVector<T>, DeferredSplitMatrix<T>>;

/// The interleaved operand for which the bound one stands, as long as nobody asked for planes; else
/// null.
template <typename Interface, typename T>
const OperandBinding* deferred_origin(const OperandBinding& binding) {
    const auto* deferred =
        storage_if<DeferredSplit<Interface, T>>(bound_entity<Interface>(binding));
    return deferred == nullptr ? nullptr : deferred->origin();
}

} // namespace Tessaline
