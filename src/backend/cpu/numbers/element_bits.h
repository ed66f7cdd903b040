// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elements as bits, for copies that move them whatever they hold.

#include "tessaline/storage/element_traits.h"

#include <cstdint>
#include <type_traits>

namespace Tessaline {

/// The bits of an element of 16 bytes.
struct Bits128 {
    std::uint64_t low;
    std::uint64_t high;
    friend Bits128 operator^(Bits128 a, Bits128 b) { return {a.low ^ b.low, a.high ^ b.high}; }
};

/// A type of `Size` bytes: 2, 4, 8 or 16.
template <std::size_t Size>
using BitsOfSize = std::conditional_t<
    Size == 16, Bits128,
    std::conditional_t<Size == 8, std::uint64_t,
                       std::conditional_t<Size == 4, std::uint32_t, std::uint16_t>>>;

template <typename T>
using BitsOf = BitsOfSize<sizeof(T)>;

template <typename T>
BitsOf<T>* as_bits(T* elements) {
    return reinterpret_cast<BitsOf<T>*>(elements);
}
template <typename T>
const BitsOf<T>* as_bits(const T* elements) {
    return reinterpret_cast<const BitsOf<T>*>(elements);
}

/// The sign of the imaginary part of a complex T; no bit of a real one.
template <typename T>
constexpr BitsOf<T> imaginary_sign() {
    if constexpr (!is_complex_element<T>) {
        return {};
    } else if constexpr (sizeof(T) == sizeof(Bits128)) {
        return {0, std::uint64_t{1} << 63U};
    } else {
        return BitsOf<T>{1} << (8 * sizeof(T) - 1);
    }
}

} // namespace Tessaline
