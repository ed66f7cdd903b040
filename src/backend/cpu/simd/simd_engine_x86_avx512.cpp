// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/simd_kernel_list.h"
#include "backend/cpu/simd/simd_set_avx512.h"

namespace Tessaline::SimdKernels {

constinit const Table avx512_table = make_table<Avx512>();

} // namespace Tessaline::SimdKernels
