// SPDX-License-Identifier: Apache-2.0
#pragma once

// Several things that must all be tried, whose first failure counts.

#include <exception>

namespace Tessaline {

/// Calls, and keeps what the call raises unless `first` holds a failure. Tells whether it ended.
template <typename Call>
bool keeping_first(std::exception_ptr& first, const Call& call) noexcept {
    try {
        call();
        return true;
    } catch (...) {
        if (!first) {
            first = std::current_exception();
        }
        return false;
    }
}

} // namespace Tessaline
