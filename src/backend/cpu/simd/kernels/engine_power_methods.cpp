// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/engine_power_methods.h"

namespace Tessaline::EnginePowerMethods {

Scratch::Scratch(std::uint64_t count) : data(new float[count]) {}

Scratch::~Scratch() {
    delete[] data;
}

} // namespace Tessaline::EnginePowerMethods
