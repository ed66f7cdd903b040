// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/sets/avx512.h"
#include "backend/cpu/simd/units/kernel_list.h"

namespace Tessaline::SimdKernels {

constinit const Table avx512_table = make_table<Avx512>();

} // namespace Tessaline::SimdKernels
