// SPDX-License-Identifier: Apache-2.0
#pragma once

// Constants of the solvers. Numerics records report them as parameters of the algorithms.

#include <limits>

namespace Tessaline::SolverLimits {

/// Cyclic Jacobi on Hermitian matrices.
inline constexpr int jacobi_sweeps = 64;

/// Shifted QR on general matrices, whatever the storage: iterations without deflation before the
/// solver gives up and before it tries another kind of shift, and sweeps of balancing.
inline constexpr int qr_iterations = 256;
inline constexpr int exceptional_shift_interval = 16;
inline constexpr int balance_sweeps = 32;

/// The rounding unit of results against that of float.
template <typename Real>
inline constexpr double unit_ratio = static_cast<double>(std::numeric_limits<Real>::epsilon()) /
                                     static_cast<double>(std::numeric_limits<float>::epsilon());

/// Shifted QR with results whose components are Real: both keep their distance from the rounding
/// unit.
template <typename Real>
inline constexpr double deflation_tolerance = double{1e-4F} * unit_ratio<Real>;
template <typename Real>
inline constexpr double residual_tolerance = 0.001 * unit_ratio<Real>;

/// Power iteration of the engine.
inline constexpr int power_iterations = 512;
inline constexpr float power_tolerance = 1e-5F;

} // namespace Tessaline::SolverLimits
