// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/element_count.h"

#include <limits>
#include <stdexcept>

namespace Tessaline {

namespace {

[[noreturn]] void fail_too_large() {
    throw std::length_error("cannot create std::vector larger than max_size()");
}

} // namespace

std::uint64_t checked_element_count(std::uint64_t rows, std::uint64_t cols) {
    std::uint64_t count = 0;
    if (__builtin_mul_overflow(rows, cols, &count)) {
        fail_too_large();
    }
    return count;
}

std::size_t checked_byte_count(std::uint64_t count, std::size_t element_size) {
    if (count >
        static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / element_size) {
        fail_too_large();
    }
    return count * element_size;
}

} // namespace Tessaline
