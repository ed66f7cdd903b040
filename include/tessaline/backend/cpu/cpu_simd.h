// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which vector instructions the CPU kernels use. The implementations do not agree bit for bit in
// products, so the choice belongs to any claim of reproducibility.

#include "tessaline/export.h"

namespace Tessaline {

/// The implementations that the program holds, "AVX2,AVX512".
TESSALINE_API const char* cpu_simd_compiled();

/// The implementation in use, "AVX2" or "AVX512": what the environment variable
/// TESSALINE_CPU_SIMD_RUNTIME asks for, or the widest that the processor has where that is unset or
/// "AUTO". Settled by the first call that succeeds. Raises std::invalid_argument for another text
/// in the variable and std::runtime_error for an implementation that the processor or the operating
/// system does not support.
TESSALINE_API const char* cpu_simd_implementation();

} // namespace Tessaline
