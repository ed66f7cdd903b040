// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine_power_methods.h"

#include <stdexcept>

namespace Tessaline::EnginePowerMethods {

void fail_matrix_power_shapes() {
    throw std::invalid_argument("SimdEngine::matrix_power - incompatible shapes");
}

Scratch::Scratch(std::uint64_t count) : data(new float[count]) {}

Scratch::~Scratch() {
    delete[] data;
}

} // namespace Tessaline::EnginePowerMethods
