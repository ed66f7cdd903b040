// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/typed_storage.h"

namespace Tessaline {

void TypedStorageDetail::fail_to_match() {
    throw std::bad_cast();
}

} // namespace Tessaline
