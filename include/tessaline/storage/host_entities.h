// SPDX-License-Identifier: Apache-2.0
#pragma once

// Dense operands that own pageable host memory. Stored is the element in memory, or the component
// of a split one; Compute is the type in which kernels work and tells classes apart only. A complex
// scalar lies in two buffers of one component each.
//
// A constructor takes the descriptor and one buffer, or the real and the imaginary one.

#include "tessaline/storage/dense_storage.h"
#include "tessaline/storage/entity_generator.h"
#include "tessaline/storage/host_buffer.h"

// elements, class, interface, access class
#define TESSALINE_HOST_ENTITIES(ENTITY)                                                            \
    ENTITY(real, BoundRealScalarEntity, ScalarEntity, DenseRealScalarAccess)                       \
    ENTITY(split, BoundComplexScalarEntity, ScalarEntity, DenseComplexSplitScalarAccess)           \
    ENTITY(real, DenseHostRealVector, VectorEntity, DenseRealVectorAccess)                         \
    ENTITY(split, DenseHostComplexSplitVector, VectorEntity, DenseComplexSplitVectorAccess)        \
    ENTITY(interleaved, DenseHostComplexIntlvVector, VectorEntity,                                 \
           DenseComplexInterleavedVectorAccess)                                                    \
    ENTITY(real, DenseHostRealMatrixRowMajor, MatrixEntity, DenseRealMatrixAccess)                 \
    ENTITY(split, DenseHostComplexSplitMatrixRowMajor, MatrixEntity,                               \
           DenseComplexSplitMatrixAccess)                                                          \
    ENTITY(interleaved, DenseHostComplexIntlvMatrixRowMajor, MatrixEntity,                         \
           DenseComplexInterleavedMatrixAccess)                                                    \
    ENTITY(interleaved, DenseHostComplexIntlvMatrixColMajor, MatrixEntity,                         \
           DenseComplexInterleavedMatrixAccess)

namespace Tessaline {

#define TESSALINE_DEFINE_HOST_ENTITY(elements, Class, Interface, Access)                           \
    TESSALINE_DEFINE_ENTITY(Class,                                                                 \
                            DenseStorageDetail::DenseStorage<EntityNames::Class, Interface,        \
                                                             Access<Stored>, HostBuffer<Stored>>)
TESSALINE_HOST_ENTITIES(TESSALINE_DEFINE_HOST_ENTITY)
#undef TESSALINE_DEFINE_HOST_ENTITY

TESSALINE_HOST_ENTITIES(TESSALINE_DECLARE_ENTITY)

} // namespace Tessaline
