// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/sets/avx512.h"
#include "backend/cpu/simd/sets/avx512_double.h"
#include "backend/cpu/simd/units/unfused_kernel_list.h"

namespace Tessaline::SimdKernels {

constinit const UnfusedTable avx512_unfused_table = make_unfused_table<Avx512, Avx512Double>();

} // namespace Tessaline::SimdKernels
