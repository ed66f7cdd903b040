// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/entities.h"

namespace Tessaline {

// Out of line, so that each interface has one virtual table across shared objects.
ErasedBufferAccess::~ErasedBufferAccess() = default;
ScalarEntity::~ScalarEntity() = default;
VectorEntity::~VectorEntity() = default;
MatrixEntity::~MatrixEntity() = default;
LuDecompEntity::~LuDecompEntity() = default;
EigenValsEntity::~EigenValsEntity() = default;
GpuResidentEntity::~GpuResidentEntity() = default;

StorageAccess ScalarEntity::buffer_access() {
    return {dynamic_cast<ErasedBufferAccess*>(this)};
}

StorageAccess VectorEntity::buffer_access() {
    return {dynamic_cast<ErasedBufferAccess*>(this)};
}

StorageAccess MatrixEntity::buffer_access() {
    return {dynamic_cast<ErasedBufferAccess*>(this)};
}

const GpuResidentEntity* ScalarEntity::readiness() const {
    return nullptr;
}

const GpuResidentEntity* VectorEntity::readiness() const {
    return nullptr;
}

const GpuResidentEntity* MatrixEntity::readiness() const {
    return nullptr;
}

const GpuResidentEntity* LuDecompEntity::readiness() const {
    return nullptr;
}

const GpuResidentEntity* EigenValsEntity::readiness() const {
    return nullptr;
}

} // namespace Tessaline
