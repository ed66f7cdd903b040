// SPDX-License-Identifier: Apache-2.0
#pragma once

// Balancing of a matrix by powers of two, after Parlett and Reinsch, "Balancing a matrix for
// calculation of eigenvalues and eigenvectors", Numer. Math. 13 (1969): rows and columns of nearly
// equal norm make eigenvalues less sensitive to rounding. A row and column stay as they are where
// scaling them would lose a bit.

#include "backend/cpu/eigen_general/scaling.h"

#include <vector>

namespace Tessaline::CpuFallback {

/// Replaces the row-major matrix of order n by the similar one with D^-1 on its left and D on its
/// right, D the diagonal of two to the exponents that it returns. Exact in every element.
std::vector<int> balance(std::span<Complex> matrix, std::size_t n);

} // namespace Tessaline::CpuFallback
