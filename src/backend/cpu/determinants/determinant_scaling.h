// SPDX-License-Identifier: Apache-2.0
#pragma once

// Scaling of a matrix before its determinant is formed. Matrices are row-major of `order` rows; C
// is double or std::complex<double>. Elements are finite.

#include <complex>
#include <cstddef>
#include <span>

namespace Tessaline::CpuStructured {

/// Multiplies a matrix that has subnormal entries by an even power of two, so that elimination
/// keeps their digits, and returns the natural logarithm of the determinant's factor; 0 for a
/// matrix that needs no scaling, and a diagonal one never does. Raises SolverError (reason
/// solver_failure, `operation` named) where the largest entry would overflow.
template <typename C>
double normalise_determinant(std::span<C> data, std::size_t order, const char* operation);

} // namespace Tessaline::CpuStructured
