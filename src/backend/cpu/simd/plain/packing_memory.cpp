// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/plain/packing_memory.h"

#include <memory>
#include <new>

namespace Tessaline::SimdKernels {

namespace {

constexpr std::align_val_t alignment{64};

struct Release {
    void operator()(void* memory) const { ::operator delete(memory, alignment); }
};

} // namespace

void* packing_memory() {
    thread_local const std::unique_ptr<void, Release> memory(
        ::operator new(packing_bytes, alignment));
    return memory.get();
}

} // namespace Tessaline::SimdKernels
