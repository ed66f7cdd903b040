// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/scalar.h"

#include "frontend/null_storage.h"
#include "tessaline/storage/storage_factory.h"

namespace Tessaline {

Scalar::Scalar(std::unique_ptr<ScalarEntity> storage)
    : storage_(require_storage(std::move(storage), "Scalar")) {}

Scalar Scalar::host_impl(const DataTypeDescriptor& type, HostMemoryOptions options,
                         const StorageInitialiser& initialiser) {
    return Scalar(StorageFactory::host_scalar(type, options, initialiser));
}

} // namespace Tessaline
