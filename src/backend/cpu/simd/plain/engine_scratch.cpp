// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/plain/engine_scratch.h"

namespace Tessaline::SimdKernels {

EngineScratch::EngineScratch(std::uint64_t count) : data(new float[count]) {}

EngineScratch::~EngineScratch() {
    delete[] data;
}

} // namespace Tessaline::SimdKernels
