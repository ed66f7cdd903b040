// SPDX-License-Identifier: Apache-2.0
#pragma once

// LU factorisation of complex64 as the SIMD engine defines it: a plain singularity threshold on
// squared magnitudes, no test of finiteness, the library's complex division.

#include "backend/cpu/simd/tables/elimination_kernels.h"
#include "tessaline/storage/kernel_views.h"

namespace Tessaline::EngineLu {

/// Factors a column-major matrix into P A = L U in place, with the pivots and the swap count of
/// CpuFallback::lu_factor. Every NaN that arithmetic stores is the positive quiet one. Raises
/// SolverError (reason singular) for a column whose largest squared magnitude is not above the
/// threshold 2^-23; the matrix is then partly eliminated, the steps before complete.
void lu_decomp(const SimdKernels::EngineEliminationKernels& kernels,
               LuDecompView<long, std::complex<float>> lu);

} // namespace Tessaline::EngineLu
