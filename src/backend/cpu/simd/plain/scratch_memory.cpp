// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/plain/scratch_memory.h"

#include <memory>
#include <new>

namespace Tessaline {

void* ScratchMemory::allocate(std::uint64_t count, std::size_t element_size) {
    std::size_t bytes = 0;
    if (__builtin_mul_overflow(count, element_size, &bytes)) {
        throw std::bad_array_new_length();
    }
    return ::operator new(bytes);
}

void ScratchMemory::release(void* memory) {
    ::operator delete(memory);
}

namespace {

constexpr std::align_val_t cache_line{64};

struct Release {
    void operator()(void* memory) const { ::operator delete(memory, cache_line); }
};

} // namespace

void* packing_memory() {
    thread_local const std::unique_ptr<void, Release> memory(
        ::operator new(packing_bytes, cache_line));
    return memory.get();
}

} // namespace Tessaline
