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

/// A real scalar, whose value lies in a host buffer of its own.
template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BoundRealScalarEntity final
    : public DenseStorageDetail::OneBuffer<ScalarEntity, DenseRealScalarAccess<Stored>,
                                           HostBuffer<Stored>> {
  public:
    BoundRealScalarEntity(ScalarDescriptor descriptor, HostBuffer<Stored> data)
        : BoundRealScalarEntity::OneBuffer("BoundRealScalarEntity", std::move(descriptor),
                                           std::move(data)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostRealVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::OneBuffer<
          VectorEntity, DenseRealVectorAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostRealVector(VectorDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostRealVector::VectorShape("DenseHostRealVector", std::move(descriptor),
                                           std::move(data)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostRealMatrixRowMajor final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::OneBuffer<
          MatrixEntity, DenseRealMatrixAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostRealMatrixRowMajor(MatrixDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostRealMatrixRowMajor::MatrixShape("DenseHostRealMatrixRowMajor",
                                                   std::move(descriptor), std::move(data)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostComplexIntlvVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::OneBuffer<
          VectorEntity, DenseComplexInterleavedVectorAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostComplexIntlvVector(VectorDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostComplexIntlvVector::VectorShape("DenseHostComplexIntlvVector",
                                                   std::move(descriptor), std::move(data)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostComplexIntlvMatrixRowMajor final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::OneBuffer<
          MatrixEntity, DenseComplexInterleavedMatrixAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostComplexIntlvMatrixRowMajor(MatrixDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostComplexIntlvMatrixRowMajor::MatrixShape("DenseHostComplexIntlvMatrixRowMajor",
                                                           std::move(descriptor), std::move(data)) {
    }
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostComplexIntlvMatrixColMajor final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::OneBuffer<
          MatrixEntity, DenseComplexInterleavedMatrixAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostComplexIntlvMatrixColMajor(MatrixDescriptor descriptor, HostBuffer<Stored> data)
        : DenseHostComplexIntlvMatrixColMajor::MatrixShape("DenseHostComplexIntlvMatrixColMajor",
                                                           std::move(descriptor), std::move(data)) {
    }
};

/// A complex scalar; its two parts lie in buffers of one component each.
template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BoundComplexScalarEntity final
    : public DenseStorageDetail::TwoBuffers<ScalarEntity, DenseComplexSplitScalarAccess<Stored>,
                                            HostBuffer<Stored>> {
  public:
    BoundComplexScalarEntity(ScalarDescriptor descriptor, HostBuffer<Stored> real,
                             HostBuffer<Stored> imag)
        : BoundComplexScalarEntity::TwoBuffers("BoundComplexScalarEntity", std::move(descriptor),
                                               std::move(real), std::move(imag)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostComplexSplitVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::TwoBuffers<
          VectorEntity, DenseComplexSplitVectorAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostComplexSplitVector(VectorDescriptor descriptor, HostBuffer<Stored> real,
                                HostBuffer<Stored> imag)
        : DenseHostComplexSplitVector::VectorShape(
              "DenseHostComplexSplitVector", std::move(descriptor), std::move(real),
              std::move(imag), "real and imag sizes don't match") {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API DenseHostComplexSplitMatrixRowMajor final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::TwoBuffers<
          MatrixEntity, DenseComplexSplitMatrixAccess<Stored>, HostBuffer<Stored>>> {
  public:
    DenseHostComplexSplitMatrixRowMajor(MatrixDescriptor descriptor, HostBuffer<Stored> real,
                                        HostBuffer<Stored> imag)
        : DenseHostComplexSplitMatrixRowMajor::MatrixShape("DenseHostComplexSplitMatrixRowMajor",
                                                           std::move(descriptor), std::move(real),
                                                           std::move(imag)) {}
};

// The instantiations that each policy brings, kept by the runtime: clients need not repeat them.
#define TESSALINE_HOST_ENTITIES_floating(PREFIX, Stored, Compute)                                  \
    PREFIX template class BoundRealScalarEntity<Stored, Compute>;                                  \
    PREFIX template class DenseHostRealVector<Stored, Compute>;                                    \
    PREFIX template class DenseHostRealMatrixRowMajor<Stored, Compute>;
#define TESSALINE_HOST_ENTITIES_integer TESSALINE_HOST_ENTITIES_floating
#define TESSALINE_HOST_ENTITIES_complex(PREFIX, Stored, Compute)                                   \
    PREFIX template class DenseHostComplexIntlvVector<Stored, Compute>;                            \
    PREFIX template class DenseHostComplexIntlvMatrixRowMajor<Stored, Compute>;                    \
    PREFIX template class DenseHostComplexIntlvMatrixColMajor<Stored, Compute>;                    \
    PREFIX template class BoundComplexScalarEntity<Component<Stored>, Component<Compute>>;         \
    PREFIX template class DenseHostComplexSplitVector<Component<Stored>, Component<Compute>>;      \
    PREFIX template class DenseHostComplexSplitMatrixRowMajor<Component<Stored>,                   \
                                                              Component<Compute>>;

#define TESSALINE_DECLARE_HOST_ENTITIES(category, Stored, Compute)                                 \
    TESSALINE_HOST_ENTITIES_##category(extern, Stored, Compute)
TESSALINE_COMPILED_POLICIES(TESSALINE_DECLARE_HOST_ENTITIES)
#undef TESSALINE_DECLARE_HOST_ENTITIES

} // namespace Tessaline
