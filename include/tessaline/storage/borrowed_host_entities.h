// SPDX-License-Identifier: Apache-2.0
#pragma once

// Dense operands in host memory that the caller owns, such as the array of a script. They build
// their own descriptors. A null owner leaves it to the caller to keep the memory alive; a pointer
// to const elements makes storage that can be bound for reading only.

#include "tessaline/storage/borrowed_buffer.h"
#include "tessaline/storage/dense_storage.h"
#include "tessaline/storage/entity_generator.h"

namespace Tessaline {

namespace BorrowedHostDetail {

/// Pageable memory of which no placement is known.
inline DataTopologyDescriptor unplaced_host() {
    return DataTopologyDescriptor::pageable_host(HostPlacement{});
}

using Owner = std::shared_ptr<const void>;

template <typename Stored>
inline constexpr DataComplexLayout layout_of =
    is_complex_element<Stored> ? DataComplexLayout::interleaved : DataComplexLayout::none;

struct RowMajor {
    constexpr operator DataMatrixLayout() const { return DataMatrixLayout::row_major; }
};
/// The orders that a matrix may have: only interleaved complex ones may be column major.
template <typename Stored>
using OrderOf = std::conditional_t<is_complex_element<Stored>, DataMatrixLayout, RowMajor>;
static_assert(DataMatrixLayout{} == DataMatrixLayout::row_major);

template <const char* Name, template <typename> typename Access, typename Stored, typename Compute>
class LentScalar : public DenseStorageDetail::DenseStorage<Name, ScalarEntity, Access<Stored>,
                                                           BorrowedBuffer<Stored>> {
  public:
    explicit LentScalar(BorrowedPointer<Stored> data, Owner owner = nullptr,
                        DataTopologyDescriptor topology = unplaced_host())
        : LentScalar::OneBuffer(
              ScalarDescriptor(std::move(topology), NumericPolicy<Stored, Compute>::type()),
              BorrowedBuffer<Stored>(data, 1, std::move(owner))) {}
};

/// Two components, which may be the parts of one interleaved element.
template <const char* Name, template <typename> typename Access, typename Stored, typename Compute>
class LentSplitScalar : public DenseStorageDetail::DenseStorage<Name, ScalarEntity, Access<Stored>,
                                                                BorrowedBuffer<Stored>> {
  public:
    LentSplitScalar(BorrowedPointer<Stored> real, BorrowedPointer<Stored> imag,
                    Owner owner = nullptr, DataTopologyDescriptor topology = unplaced_host())
        : LentSplitScalar::TwoBuffers(
              ScalarDescriptor(std::move(topology), SplitPolicyOf<Stored>::type()),
              BorrowedBuffer<Stored>(real, 1, owner), BorrowedBuffer<Stored>(imag, 1, owner)) {}
};

template <const char* Name, template <typename> typename Access, typename Stored, typename Compute>
class LentVector : public DenseStorageDetail::DenseStorage<Name, VectorEntity, Access<Stored>,
                                                           BorrowedBuffer<Stored>> {
  public:
    LentVector(BorrowedPointer<Stored> data, std::uint64_t size, Owner owner = nullptr,
               DataTopologyDescriptor topology = unplaced_host())
        : LentVector::VectorShape(VectorDescriptor(size, std::move(topology),
                                                   NumericPolicy<Stored, Compute>::type(),
                                                   DataVectorFormat::dense, layout_of<Stored>),
                                  BorrowedBuffer<Stored>(data, size, std::move(owner))) {}
};

/// The constructor raises std::length_error when rows times cols overflows.
template <const char* Name, template <typename> typename Access, typename Stored, typename Compute>
class LentMatrix : public DenseStorageDetail::DenseStorage<Name, MatrixEntity, Access<Stored>,
                                                           BorrowedBuffer<Stored>> {
  public:
    LentMatrix(BorrowedPointer<Stored> data, std::uint64_t rows, std::uint64_t cols,
               Owner owner = nullptr, DataTopologyDescriptor topology = unplaced_host(),
               OrderOf<Stored> order = {})
        : LentMatrix::MatrixShape(
              MatrixDescriptor(rows, cols, std::move(topology),
                               NumericPolicy<Stored, Compute>::type(), DataMatrixFormat::dense,
                               order, layout_of<Stored>),
              BorrowedBuffer<Stored>(data, checked_element_count(rows, cols), std::move(owner))) {}
};

} // namespace BorrowedHostDetail

// elements, class, what it is lent, access class
#define TESSALINE_BORROWED_HOST_ENTITIES(ENTITY)                                                   \
    ENTITY(real, BorrowedDenseHostRealScalar, LentScalar, DenseRealScalarAccess)                   \
    ENTITY(split, BorrowedDenseHostComplexSplitScalar, LentSplitScalar,                            \
           DenseComplexSplitScalarAccess)                                                          \
    ENTITY(real, BorrowedDenseHostRealVector, LentVector, DenseRealVectorAccess)                   \
    ENTITY(interleaved, BorrowedDenseHostComplexInterleavedVector, LentVector,                     \
           DenseComplexInterleavedVectorAccess)                                                    \
    ENTITY(real, BorrowedDenseHostRealMatrix, LentMatrix, DenseRealMatrixAccess)                   \
    ENTITY(interleaved, BorrowedDenseHostComplexInterleavedMatrix, LentMatrix,                     \
           DenseComplexInterleavedMatrixAccess)

#define TESSALINE_DEFINE_BORROWED_ENTITY(elements, Class, Operand, Access)                         \
    TESSALINE_DEFINE_ENTITY(                                                                       \
        Class, BorrowedHostDetail::Operand<EntityNames::Class, Access, Stored, Compute>)
TESSALINE_BORROWED_HOST_ENTITIES(TESSALINE_DEFINE_BORROWED_ENTITY)
#undef TESSALINE_DEFINE_BORROWED_ENTITY

TESSALINE_BORROWED_HOST_ENTITIES(TESSALINE_DECLARE_ENTITY)

} // namespace Tessaline
