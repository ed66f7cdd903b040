// SPDX-License-Identifier: Apache-2.0
#pragma once

// Abstract operand storage, one interface per operand kind. An entity owns or refers to the memory
// of one operand and tells what it is; only kernel steps take it as more than that.
//
// `readiness()` is the order that work on device memory keeps; it is null for memory of the host,
// which is ready at all times.

#include "tessaline/catalogue/shape_descriptors.h"
#include "tessaline/storage/buffer_view.h"
#include "tessaline/storage/gpu_resident_entity.h"

namespace Tessaline {

/// The access to its buffers that a scalar, vector or matrix is besides its interface. Storage of
/// the runtime tells it, to spare each operation the search of a cast.
struct StorageAccess {
    ErasedBufferAccess* buffers = nullptr; ///< null for an entity that offers none
    const std::type_info* type = nullptr;  ///< typed access class of `buffers`, null if not told

    template <typename Access>
    static StorageAccess of(Access& access) {
        return {&access, &typeid(Access)};
    }
};

class TESSALINE_API ScalarEntity {
  public:
    ScalarEntity() = default;
    ScalarEntity(const ScalarEntity&) = delete;
    ScalarEntity& operator=(const ScalarEntity&) = delete;
    virtual ~ScalarEntity();
    virtual const ScalarDescriptor& descriptor() const = 0;
    virtual StorageAccess buffer_access();
    virtual const GpuResidentEntity* readiness() const;
};

class TESSALINE_API VectorEntity {
  public:
    VectorEntity() = default;
    VectorEntity(const VectorEntity&) = delete;
    VectorEntity& operator=(const VectorEntity&) = delete;
    virtual ~VectorEntity();
    virtual const VectorDescriptor& descriptor() const = 0;
    virtual StorageAccess buffer_access();
    virtual const GpuResidentEntity* readiness() const;
};

class TESSALINE_API MatrixEntity {
  public:
    MatrixEntity() = default;
    MatrixEntity(const MatrixEntity&) = delete;
    MatrixEntity& operator=(const MatrixEntity&) = delete;
    virtual ~MatrixEntity();
    virtual const MatrixDescriptor& descriptor() const = 0;
    virtual StorageAccess buffer_access();
    virtual const GpuResidentEntity* readiness() const;
};

class TESSALINE_API LuDecompEntity : public ErasedBufferAccess {
  public:
    LuDecompEntity() = default;
    LuDecompEntity(const LuDecompEntity&) = delete;
    LuDecompEntity& operator=(const LuDecompEntity&) = delete;
    ~LuDecompEntity() override;
    virtual const LuDecompDescriptor& descriptor() const = 0;
    virtual const GpuResidentEntity* readiness() const;
};

class TESSALINE_API EigenValsEntity : public ErasedBufferAccess {
  public:
    EigenValsEntity() = default;
    EigenValsEntity(const EigenValsEntity&) = delete;
    EigenValsEntity& operator=(const EigenValsEntity&) = delete;
    ~EigenValsEntity() override;
    virtual const EigenValsDescriptor& descriptor() const = 0;
    virtual const GpuResidentEntity* readiness() const;
};

} // namespace Tessaline
