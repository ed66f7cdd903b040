// SPDX-License-Identifier: Apache-2.0
#pragma once

// The tolerances by which kernels compare components, and which the numerics records state.

#include "tessaline/storage/element_traits.h"

namespace Tessaline {

/// How far two components may lie apart and count as equal.
template <typename Real>
struct Tolerance {
    Real absolute;
    Real relative;
};

namespace ToleranceDetail {

/// By the type of a stored component.
template <typename Part>
struct Of;
template <>
struct Of<Float16> {
    static constexpr Tolerance<float> value{0x1p-10F, 0x1p-8F};
};
template <>
struct Of<BFloat16> {
    static constexpr Tolerance<float> value{0x1p-7F, 0x1p-5F};
};
template <>
struct Of<float> {
    static constexpr Tolerance<float> value{1e-6F, 1e-5F};
};
template <>
struct Of<double> {
    static constexpr Tolerance<double> value{0x1p-52, 0x1p-50};
};

} // namespace ToleranceDetail

/// The tolerance between elements stored as T, which are compared in compute type: that of the
/// storage, each component on its own.
template <typename T>
inline constexpr auto floating_tolerance = ToleranceDetail::Of<Component<T>>::value;

} // namespace Tessaline
