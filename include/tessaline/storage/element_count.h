// SPDX-License-Identifier: Apache-2.0
#pragma once

// Element and byte counts that do not wrap around.

#include "tessaline/export.h"

#include <cstddef>
#include <cstdint>

namespace Tessaline {

/// rows times cols. Raises std::length_error when the product exceeds 64 bits.
TESSALINE_API std::uint64_t checked_element_count(std::uint64_t rows, std::uint64_t cols);

/// The bytes of `count` elements. Raises std::length_error beyond the largest object size.
TESSALINE_API std::size_t checked_byte_count(std::uint64_t count, std::size_t element_size);

} // namespace Tessaline
