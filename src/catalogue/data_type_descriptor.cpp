// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/data_type_descriptor.h"

#include <stdexcept>

namespace Tessaline {

DataTypeDescriptor DataTypeDescriptor::from_scalar_types(ScalarType storage, ScalarType compute) {
    const ScalarCategory category = scalar_metadata(storage).category;
    if (scalar_metadata(compute).category != category) {
        throw std::invalid_argument("DataTypeDescriptor - storage and compute categories differ");
    }
    const bool complex =
        category == ScalarCategory::complex_floating || category == ScalarCategory::complex_integer;
    return {complex ? DataDomain::Complex : DataDomain::Real, storage, compute,
            ScalarQuantisation::None};
}

} // namespace Tessaline
