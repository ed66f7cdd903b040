// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/matrix.h"

#include "frontend/null_storage.h"
#include "tessaline/storage/element_count.h"
#include "tessaline/storage/storage_factory.h"

namespace Tessaline {

Matrix::Matrix(std::unique_ptr<MatrixEntity> storage)
    : storage_(require_storage(std::move(storage), "Matrix")) {
    checked_element_count(rows(), cols());
}

Matrix Matrix::host_impl(const DataTypeDescriptor& type, std::uint64_t rows, std::uint64_t cols,
                         DataMatrixLayout layout, DataComplexLayout complex_layout,
                         HostMemoryOptions options, const StorageInitialiser& initialiser) {
    return Matrix(StorageFactory::host_matrix(type, rows, cols, layout, complex_layout, options,
                                              initialiser));
}

} // namespace Tessaline
