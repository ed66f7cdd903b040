// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/kernels/engine_lu.h"

namespace Tessaline::EngineLu {

Scratch::Scratch(std::uint64_t count) : data(new ComplexFloat[count]) {}

Scratch::~Scratch() {
    delete[] data;
}

} // namespace Tessaline::EngineLu
