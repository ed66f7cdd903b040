// SPDX-License-Identifier: Apache-2.0
#include "storage/dense_factory.h"

namespace Tessaline {

void DenseFactory::check_contract(OperandKind kind, const DataTypeDescriptor& type,
                                  DataComplexLayout complex_layout,
                                  std::optional<DataMatrixLayout> layout) {
    if (!dense_storage_contract({kind, DataLocation::pageable_host, OperandFormat::dense(kind),
                                 type.storage_type(), type.compute_type(), complex_layout,
                                 layout})) {
        throw std::invalid_argument("dense storage - unsupported scalar category, shape or layout");
    }
}

DataComplexLayout DenseFactory::whole_layout(const DataTypeDescriptor& type) {
    const ScalarCategory category = scalar_metadata(type.storage_type()).category;
    return category == ScalarCategory::complex_floating ? DataComplexLayout::interleaved
                                                        : DataComplexLayout::none;
}

} // namespace Tessaline
