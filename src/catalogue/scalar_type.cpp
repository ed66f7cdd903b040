// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/scalar_type.h"

#include <stdexcept>

namespace Tessaline {

const ScalarMetadata& scalar_metadata(ScalarType type) {
    for (const ScalarMetadata& row : scalar_types) {
        if (row.type == type) {
            return row;
        }
    }
    throw std::invalid_argument("scalar_metadata - unknown scalar type");
}

} // namespace Tessaline
