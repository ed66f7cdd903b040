// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/eigen_values.h"

#include "frontend/null_storage.h"
#include "tessaline/storage/storage_factory.h"

namespace Tessaline {

EigenValues::EigenValues(std::unique_ptr<EigenValsEntity> storage)
    : storage_(require_storage(std::move(storage), "EigenValues")) {}

EigenValues EigenValues::host_impl(const DataTypeDescriptor& type, std::uint64_t size,
                                   DataMatrixLayout layout, HostMemoryOptions options) {
    return EigenValues(StorageFactory::host_eigen(type, size, layout, options));
}

} // namespace Tessaline
