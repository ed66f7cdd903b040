// SPDX-License-Identifier: Apache-2.0
#pragma once

// The one shape of a failed contract check.

#include <stdexcept>

namespace Tessaline {

inline void require(bool holds, const char* message) {
    if (!holds) {
        throw std::invalid_argument(message);
    }
}

} // namespace Tessaline
