// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/rotations.h"
#include "backend/cpu/simd/sets/sse2_double.h"

namespace Tessaline::SimdKernels {

constinit const RotationTable baseline_rotation_table = make_rotation_table<Sse2Double>();

} // namespace Tessaline::SimdKernels
