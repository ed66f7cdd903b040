// SPDX-License-Identifier: Apache-2.0
#pragma once

// Temporary memory of the engine's solvers. Allocated here and not in their units, which are
// compiled for one instruction set and may instantiate nothing that other units share.

#include <cstdint>

namespace Tessaline::SimdKernels {

class EngineScratch {
  public:
    /// May raise std::bad_alloc.
    explicit EngineScratch(std::uint64_t count);
    EngineScratch(const EngineScratch&) = delete;
    EngineScratch& operator=(const EngineScratch&) = delete;
    ~EngineScratch();

    float* const data; ///< `count` elements, not initialised
};

} // namespace Tessaline::SimdKernels
