// SPDX-License-Identifier: Apache-2.0
#pragma once

// The policies of the floating kernels: how stored elements are read and written, and for which of
// them kernels are instantiated.

#include "tessaline/storage/numeric_policy.h"

#include <cmath>
#include <limits>

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

namespace FloatingPolicyDetail {

template <typename Real>
Real with_one_nan(Real value) {
    return std::isnan(value) ? std::numeric_limits<Real>::quiet_NaN() : value;
}

} // namespace FloatingPolicyDetail

/// The result of arithmetic as an element stores it: rounded once, with every NaN as the positive
/// quiet one. Of two NaN the processor passes on the first, and which that is the compiler decides
/// anew for each copy and each vector of a loop; one NaN keeps a result's bits from telling them
/// apart.
template <typename T>
T result_as(ComputeOf<T> value) {
    using FloatingPolicyDetail::with_one_nan;
    if constexpr (is_complex_element<T>) {
        return stored_as<T>({with_one_nan(value.real()), with_one_nan(value.imag())});
    } else {
        return stored_as<T>(with_one_nan(value));
    }
}

/// The conjugate of a complex element, a real element itself.
template <typename T>
T conjugated(T element) {
    if constexpr (is_complex_element<T>) {
        return stored_as<T>(std::conj(widened(element)));
    } else {
        return element;
    }
}

} // namespace Tessaline

// Keeps what depends on a policy of the given category where floating kernels exist for it:
// TESSALINE_COMPILED_POLICIES filtered.
#define TESSALINE_IF_FLOATING_floating(...) __VA_ARGS__
#define TESSALINE_IF_FLOATING_complex(...) __VA_ARGS__
#define TESSALINE_IF_FLOATING_integer(...)
