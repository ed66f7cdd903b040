// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/checked_size_cast.h"

#include <stdexcept>

namespace Tessaline {

void CheckedSizeCastDetail::fail() {
    throw std::overflow_error("size exceeds destination integer range");
}

} // namespace Tessaline
