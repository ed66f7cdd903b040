// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/vector.h"

#include "frontend/null_storage.h"
#include "tessaline/storage/storage_factory.h"

namespace Tessaline {

Vector::Vector(std::unique_ptr<VectorEntity> storage)
    : storage_(require_storage(std::move(storage), "Vector")) {}

Vector Vector::host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                         DataComplexLayout complex_layout, HostMemoryOptions options,
                         const StorageInitialiser& initialiser) {
    return Vector(StorageFactory::host_vector(type, size, complex_layout, options, initialiser));
}

} // namespace Tessaline
