// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/sets/avx256.h"
#include "backend/cpu/simd/sets/avx256_double.h"
#include "backend/cpu/simd/units/unfused_kernel_list.h"

namespace Tessaline::SimdKernels {

constinit const UnfusedTable avx256_unfused_table = make_unfused_table<Avx256, Avx256Double>();

} // namespace Tessaline::SimdKernels
