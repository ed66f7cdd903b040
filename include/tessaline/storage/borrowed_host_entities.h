// SPDX-License-Identifier: Apache-2.0
#pragma once

// Dense operands in host memory that the caller owns, such as the array of a script. They build
// their own descriptors. A null owner leaves it to the caller to keep the memory alive; a pointer
// to const elements makes storage that can be bound for reading only.

#include "tessaline/storage/borrowed_buffer.h"
#include "tessaline/storage/dense_storage.h"
#include "tessaline/storage/numeric_policy.h"

namespace Tessaline {

namespace BorrowedHostDetail {

/// Pageable memory of which no placement is known.
inline DataTopologyDescriptor unplaced_host() {
    return DataTopologyDescriptor::pageable_host(HostPlacement{});
}

} // namespace BorrowedHostDetail

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostRealScalar final
    : public DenseStorageDetail::OneBuffer<ScalarEntity, DenseRealScalarAccess<Stored>,
                                           BorrowedBuffer<Stored>> {
  public:
    explicit BorrowedDenseHostRealScalar(
        BorrowedPointer<Stored> data, std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host())
        : BorrowedDenseHostRealScalar::OneBuffer(
              "BorrowedDenseHostRealScalar",
              ScalarDescriptor(std::move(topology), NumericPolicy<Stored, Compute>::type()),
              BorrowedBuffer<Stored>(data, 1, std::move(owner))) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostRealVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::OneBuffer<
          VectorEntity, DenseRealVectorAccess<Stored>, BorrowedBuffer<Stored>>> {
  public:
    BorrowedDenseHostRealVector(
        BorrowedPointer<Stored> data, std::uint64_t size,
        std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host())
        : BorrowedDenseHostRealVector::VectorShape(
              "BorrowedDenseHostRealVector",
              VectorDescriptor(size, std::move(topology), NumericPolicy<Stored, Compute>::type(),
                               DataVectorFormat::dense, DataComplexLayout::none),
              BorrowedBuffer<Stored>(data, size, std::move(owner))) {}
};

/// Row major. The constructor raises std::length_error when rows times cols overflows.
template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostRealMatrix final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::OneBuffer<
          MatrixEntity, DenseRealMatrixAccess<Stored>, BorrowedBuffer<Stored>>> {
  public:
    BorrowedDenseHostRealMatrix(
        BorrowedPointer<Stored> data, std::uint64_t rows, std::uint64_t cols,
        std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host())
        : BorrowedDenseHostRealMatrix::MatrixShape(
              "BorrowedDenseHostRealMatrix",
              MatrixDescriptor(rows, cols, std::move(topology),
                               NumericPolicy<Stored, Compute>::type(), DataMatrixFormat::dense,
                               DataMatrixLayout::row_major, DataComplexLayout::none),
              BorrowedBuffer<Stored>(data, checked_element_count(rows, cols), std::move(owner))) {}
};

/// Two components, which may be the parts of one interleaved element.
template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostComplexSplitScalar final
    : public DenseStorageDetail::TwoBuffers<ScalarEntity, DenseComplexSplitScalarAccess<Stored>,
                                            BorrowedBuffer<Stored>> {
  public:
    BorrowedDenseHostComplexSplitScalar(
        BorrowedPointer<Stored> real, BorrowedPointer<Stored> imag,
        std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host())
        : BorrowedDenseHostComplexSplitScalar::TwoBuffers(
              "BorrowedDenseHostComplexSplitScalar",
              ScalarDescriptor(std::move(topology), SplitPolicyOf<Stored>::type()),
              BorrowedBuffer<Stored>(real, 1, owner), BorrowedBuffer<Stored>(imag, 1, owner)) {}
};

template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostComplexInterleavedVector final
    : public DenseStorageDetail::VectorShape<DenseStorageDetail::OneBuffer<
          VectorEntity, DenseComplexInterleavedVectorAccess<Stored>, BorrowedBuffer<Stored>>> {
  public:
    BorrowedDenseHostComplexInterleavedVector(
        BorrowedPointer<Stored> data, std::uint64_t size,
        std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host())
        : BorrowedDenseHostComplexInterleavedVector::VectorShape(
              "BorrowedDenseHostComplexInterleavedVector",
              VectorDescriptor(size, std::move(topology), NumericPolicy<Stored, Compute>::type(),
                               DataVectorFormat::dense, DataComplexLayout::interleaved),
              BorrowedBuffer<Stored>(data, size, std::move(owner))) {}
};

/// The constructor raises std::length_error when rows times cols overflows.
template <BufferElement Stored, BufferElement Compute>
class TESSALINE_API BorrowedDenseHostComplexInterleavedMatrix final
    : public DenseStorageDetail::MatrixShape<DenseStorageDetail::OneBuffer<
          MatrixEntity, DenseComplexInterleavedMatrixAccess<Stored>, BorrowedBuffer<Stored>>> {
  public:
    BorrowedDenseHostComplexInterleavedMatrix(
        BorrowedPointer<Stored> data, std::uint64_t rows, std::uint64_t cols,
        std::shared_ptr<const void> owner = nullptr,
        DataTopologyDescriptor topology = BorrowedHostDetail::unplaced_host(),
        DataMatrixLayout layout = DataMatrixLayout::row_major)
        : BorrowedDenseHostComplexInterleavedMatrix::MatrixShape(
              "BorrowedDenseHostComplexInterleavedMatrix",
              MatrixDescriptor(rows, cols, std::move(topology),
                               NumericPolicy<Stored, Compute>::type(), DataMatrixFormat::dense,
                               layout, DataComplexLayout::interleaved),
              BorrowedBuffer<Stored>(data, checked_element_count(rows, cols), std::move(owner))) {}
};

#define TESSALINE_BORROWED_HOST_ENTITIES_floating(PREFIX, Stored, Compute)                         \
    PREFIX template class BorrowedDenseHostRealScalar<Stored, Compute>;                            \
    PREFIX template class BorrowedDenseHostRealVector<Stored, Compute>;                            \
    PREFIX template class BorrowedDenseHostRealMatrix<Stored, Compute>;
#define TESSALINE_BORROWED_HOST_ENTITIES_integer TESSALINE_BORROWED_HOST_ENTITIES_floating
#define TESSALINE_BORROWED_HOST_ENTITIES_complex(PREFIX, Stored, Compute)                          \
    PREFIX template class BorrowedDenseHostComplexSplitScalar<Component<Stored>,                   \
                                                              Component<Compute>>;                 \
    PREFIX template class BorrowedDenseHostComplexInterleavedVector<Stored, Compute>;              \
    PREFIX template class BorrowedDenseHostComplexInterleavedMatrix<Stored, Compute>;

#define TESSALINE_DECLARE_BORROWED_HOST_ENTITIES(category, Stored, Compute)                        \
    TESSALINE_BORROWED_HOST_ENTITIES_##category(extern, Stored, Compute)
TESSALINE_COMPILED_POLICIES(TESSALINE_DECLARE_BORROWED_HOST_ENTITIES)
#undef TESSALINE_DECLARE_BORROWED_HOST_ENTITIES

} // namespace Tessaline
