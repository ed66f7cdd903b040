// SPDX-License-Identifier: Apache-2.0
#pragma once

// Reduction to triangular form by shifted QR iterations on whole blocks: no reduction to
// Hessenberg form precedes them, every iteration factors the active block anew.

#include "backend/cpu/eigen_general/deflation.h"

namespace Tessaline::CpuFallback {

/// Makes H upper triangular by unitary similarities, which Z accumulates. `epsilon` is the rounding
/// unit that decides whether a column depends on those before it. Raises the failures of
/// convergence and of intermediates that are not finite.
void reduce_to_triangular(SchurForm& schur, Deflation& deflation, double epsilon);

} // namespace Tessaline::CpuFallback
