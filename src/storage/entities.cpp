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

ErasedBufferAccess* ScalarEntity::buffer_access() {
    return dynamic_cast<ErasedBufferAccess*>(this);
}

ErasedBufferAccess* VectorEntity::buffer_access() {
    return dynamic_cast<ErasedBufferAccess*>(this);
}

ErasedBufferAccess* MatrixEntity::buffer_access() {
    return dynamic_cast<ErasedBufferAccess*>(this);
}

} // namespace Tessaline
