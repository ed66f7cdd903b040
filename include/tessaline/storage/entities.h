// SPDX-License-Identifier: Apache-2.0
#pragma once

// Abstract operand storage, one interface per operand kind. An entity owns or refers to the memory
// of one operand and tells what it is; only kernel steps cast it down to its concrete class.

#include "tessaline/catalogue/shape_descriptors.h"
#include "tessaline/storage/buffer_view.h"

namespace Tessaline {

class TESSALINE_API ScalarEntity {
  public:
    ScalarEntity() = default;
    ScalarEntity(const ScalarEntity&) = delete;
    ScalarEntity& operator=(const ScalarEntity&) = delete;
    virtual ~ScalarEntity();
    virtual const ScalarDescriptor& descriptor() const = 0;
    /// The access to its buffers that the entity also is, null where it is none. Storage overrides
    /// it to spare each operation the search of a cast.
    virtual ErasedBufferAccess* buffer_access();
};

class TESSALINE_API VectorEntity {
  public:
    VectorEntity() = default;
    VectorEntity(const VectorEntity&) = delete;
    VectorEntity& operator=(const VectorEntity&) = delete;
    virtual ~VectorEntity();
    virtual const VectorDescriptor& descriptor() const = 0;
    /// The access to its buffers that the entity also is, null where it is none. Storage overrides
    /// it to spare each operation the search of a cast.
    virtual ErasedBufferAccess* buffer_access();
};

class TESSALINE_API MatrixEntity {
  public:
    MatrixEntity() = default;
    MatrixEntity(const MatrixEntity&) = delete;
    MatrixEntity& operator=(const MatrixEntity&) = delete;
    virtual ~MatrixEntity();
    virtual const MatrixDescriptor& descriptor() const = 0;
    /// The access to its buffers that the entity also is, null where it is none. Storage overrides
    /// it to spare each operation the search of a cast.
    virtual ErasedBufferAccess* buffer_access();
};

class TESSALINE_API LuDecompEntity : public ErasedBufferAccess {
  public:
    LuDecompEntity() = default;
    LuDecompEntity(const LuDecompEntity&) = delete;
    LuDecompEntity& operator=(const LuDecompEntity&) = delete;
    ~LuDecompEntity() override;
    virtual const LuDecompDescriptor& descriptor() const = 0;
};

class TESSALINE_API EigenValsEntity : public ErasedBufferAccess {
  public:
    EigenValsEntity() = default;
    EigenValsEntity(const EigenValsEntity&) = delete;
    EigenValsEntity& operator=(const EigenValsEntity&) = delete;
    ~EigenValsEntity() override;
    virtual const EigenValsDescriptor& descriptor() const = 0;
};

} // namespace Tessaline
