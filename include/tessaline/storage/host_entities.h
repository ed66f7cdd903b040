// SPDX-License-Identifier: Apache-2.0
#pragma once

// Dense operands that own pageable host memory. Stored is the element in memory, or the component
// of a split one; Compute is the type in which kernels work and tells classes apart only.
//
// A constructor takes its buffers over and raises std::invalid_argument when their sizes are not
// those of the descriptor.

#include "tessaline/storage/dense_storage.h"
#include "tessaline/storage/host_buffer.h"

namespace Tessaline {

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostRealVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::OneBuffer<
          VectorEntity, DenseRealVectorAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostRealVector(VectorDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostRealVector::VectorShape("DenseHostRealVector", std::move(descriptor),
                                           std::move(data)) {}
};

} // namespace Tessaline
