// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/sets/avx256.h"
#include "backend/cpu/simd/units/kernel_list.h"

namespace Tessaline::SimdKernels {

constinit const Table avx256_table = make_table<Avx256>();

} // namespace Tessaline::SimdKernels
