// SPDX-License-Identifier: Apache-2.0
#pragma once

// The policies of the floating kernels: how stored elements are read and written, and for which of
// them kernels are instantiated.

#include "tessaline/storage/numeric_policy.h"

namespace Tessaline {

/// The type in which kernels compute on elements stored as T.
template <typename T>
using ComputeOf = typename PolicyOf<T>::Compute;

/// The stored value in compute type, exactly.
template <typename T>
ComputeOf<T> widened(T stored) {
    return static_cast<ComputeOf<T>>(stored);
}

/// The value as an element stores it: rounded once, to nearest with ties to even.
template <typename T>
T stored_as(ComputeOf<T> value) {
    return static_cast<T>(value);
}

/// The conjugate of a complex value, a real value itself.
template <typename Value>
Value conjugated(Value value) {
    if constexpr (is_complex_element<Value>) {
        return std::conj(value);
    } else {
        return value;
    }
}

} // namespace Tessaline

// Keeps what depends on a policy of the given category where floating kernels exist for it:
// TESSALINE_COMPILED_POLICIES filtered.
#define TESSALINE_IF_FLOATING_floating(...) __VA_ARGS__
#define TESSALINE_IF_FLOATING_complex(...) __VA_ARGS__
#define TESSALINE_IF_FLOATING_integer(...)
