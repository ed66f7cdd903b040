// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/sets/avx256_integer_binary16.h"
#include "backend/cpu/simd/units/stored_kernel_list.h"

namespace Tessaline::SimdKernels {

constinit const Binary16Kernels avx256_integer_binary16_kernels =
    make_binary16_kernels<Avx256IntegerBinary16>();

} // namespace Tessaline::SimdKernels
