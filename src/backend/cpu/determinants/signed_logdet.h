// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sign and logarithm of any determinant, by elimination in double precision that stays truthful at
// the ends of the range: what that cannot hold is an error with a reason, never a zero or an
// infinity.

#include <complex>
#include <cstddef>
#include <span>
#include <utility>

namespace Tessaline::CpuStructured {

/// For a row-major matrix of `order` rows and finite elements, which is overwritten; C is double or
/// std::complex<double>. The sign of det A (its phase for complex C) and log|det A|; 0 and minus
/// infinity for a singular matrix. Raises std::runtime_error where elimination overflows and
/// SolverError (reason solver_failure) where a multiplier underflows or the scaling of
/// normalise_determinant fails.
template <typename C>
std::pair<C, double> signed_logdet(std::span<C> data, std::size_t order);

} // namespace Tessaline::CpuStructured
