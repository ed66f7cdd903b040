// SPDX-License-Identifier: Apache-2.0
#pragma once

// Floating kernels that answer yes or no, and the tolerances by which they compare.

#include "backend/cpu/numbers/floating_policies.h"
#include "tessaline/execution/backend_execution_bindings.h"

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

/// Both are serial and write an int scalar, 1 or 0. Components are compared for equality first,
/// which makes infinities of one sign equal; other values that are not finite differ from all. See
/// operands.h for the errors.
template <typename T>
struct FloatingComparisons {
    /// Whether the rows of a row-major matrix, or the columns of a column-major one, are
    /// orthonormal. 0 for a matrix that is not square, 1 for an empty one.
    static void is_unitary(BackendExecutionBindings& bindings);
    /// 0 for vectors of different sizes.
    static void vector_equal(BackendExecutionBindings& bindings);
};

} // namespace Tessaline
