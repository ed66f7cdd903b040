// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_rotations.h"
#include "backend/cpu/simd/simd_set_avx256_double.h"

namespace Tessaline::SimdKernels {

constinit const RotationTable avx256_rotation_table = make_rotation_table<Avx256Double>();

} // namespace Tessaline::SimdKernels
