// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/elimination.h"
#include "backend/cpu/simd/kernels/gram_schmidt.h"
#include "backend/cpu/simd/kernels/rotations.h"
#include "backend/cpu/simd/sets/avx256.h"
#include "backend/cpu/simd/sets/avx256_double.h"

namespace Tessaline::SimdKernels {

constinit const RotationTable avx256_rotation_table = make_rotation_table<Avx256Double>();
constinit const EliminationTable avx256_elimination_table =
    make_elimination_table<Avx256, Avx256Double>();
constinit const GramSchmidtKernels avx256_gram_schmidt_kernels =
    make_gram_schmidt_kernels<Avx256Double>();

} // namespace Tessaline::SimdKernels
