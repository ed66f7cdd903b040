// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/elimination.h"
#include "backend/cpu/simd/kernels/gram_schmidt.h"
#include "backend/cpu/simd/kernels/rotations.h"
#include "backend/cpu/simd/sets/avx512.h"
#include "backend/cpu/simd/sets/avx512_double.h"

namespace Tessaline::SimdKernels {

constinit const RotationTable avx512_rotation_table = make_rotation_table<Avx512Double>();
constinit const EliminationTable avx512_elimination_table =
    make_elimination_table<Avx512, Avx512Double>();
constinit const GramSchmidtKernels avx512_gram_schmidt_kernels =
    make_gram_schmidt_kernels<Avx512Double>();

} // namespace Tessaline::SimdKernels
