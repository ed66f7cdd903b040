// SPDX-License-Identifier: Apache-2.0
#pragma once

// Constants of the general eigensolver, which its numerics records report as well.

#include <limits>

namespace Tessaline::CpuFallback {

/// QR iterations without deflation before the solver gives up.
inline constexpr int maximum_iterations = 256;

/// Sweeps of balancing.
inline constexpr int maximum_balance_sweeps = 32;

/// Iterations without deflation between shifts of another kind.
inline constexpr int exceptional_shift_interval = 16;

/// The rounding unit of Real against that of float.
template <typename Real>
inline constexpr double relative_rounding_unit =
    double{std::numeric_limits<Real>::epsilon()} / double{std::numeric_limits<float>::epsilon()};

/// Tolerances for results with parts of type Real. They keep their distance from its rounding unit.
template <typename Real>
inline constexpr double deflation_tolerance = double{1e-4F} * relative_rounding_unit<Real>;
template <typename Real>
inline constexpr double residual_tolerance = 0.001 * relative_rounding_unit<Real>;

} // namespace Tessaline::CpuFallback
