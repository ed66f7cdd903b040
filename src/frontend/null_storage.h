// SPDX-License-Identifier: Apache-2.0
#pragma once

// The one refusal that all handles share.

#include "tessaline/catalogue/errors.h"

#include <memory>

namespace Tessaline {

/// `storage` itself. Raises ArgumentError in the name of the handle's class when it is null.
template <typename Entity>
std::unique_ptr<Entity>
require_storage(std::unique_ptr<Entity> storage, const char* handle,
                std::source_location location = std::source_location::current()) {
    if (storage == nullptr) {
        throw ArgumentError(std::string(handle) + " - storage cannot be null", handle,
                            ErrorReason::null_storage, location);
    }
    return storage;
}

} // namespace Tessaline
