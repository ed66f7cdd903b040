// SPDX-License-Identifier: Apache-2.0
#pragma once

// Printed names of enumerations: each enumeration has one table of words, indexed by value.

#include <array>
#include <cstddef>

namespace Tessaline {

template <typename Enumeration, std::size_t Count>
constexpr const char* enumeration_word(const std::array<const char*, Count>& words,
                                       Enumeration value, const char* fallback = "unknown") {
    const auto index = static_cast<std::size_t>(value);
    return index < Count ? words[index] : fallback;
}

} // namespace Tessaline
