// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/dense_storage.h"

#include <stdexcept>

namespace Tessaline {

void DenseStorageDetail::check_sizes(bool agree, const char* class_name, const char* complaint) {
    if (!agree) {
        throw std::invalid_argument(std::string(class_name) + " - " + complaint);
    }
}

} // namespace Tessaline
