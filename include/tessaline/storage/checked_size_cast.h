// SPDX-License-Identifier: Apache-2.0
#pragma once

// Conversion of a size to a narrower integer: a pivot, a status, a library's dimension.

#include "tessaline/export.h"

#include <cstdint>
#include <utility>

namespace Tessaline {

namespace CheckedSizeCastDetail {

[[noreturn]] TESSALINE_API void fail();

} // namespace CheckedSizeCastDetail

/// `size` as an Integer. Raises std::overflow_error when that type cannot hold it.
template <typename Integer>
Integer checked_size_cast(std::uint64_t size) {
    if (!std::in_range<Integer>(size)) {
        CheckedSizeCastDetail::fail();
    }
    return static_cast<Integer>(size);
}

} // namespace Tessaline
