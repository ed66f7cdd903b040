// SPDX-License-Identifier: Apache-2.0

#include "support/allocation_counter.h"

#include <cstdlib>
#include <new>

namespace Tessaline::Testing {

namespace {

thread_local std::uint64_t count = 0;

void* checked(void* memory) {
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    ++count;
    return memory;
}

} // namespace

std::uint64_t allocation_count() noexcept {
    return count;
}

} // namespace Tessaline::Testing

// The array and nothrow forms of the standard library call these.

void* operator new(std::size_t size) {
    return Tessaline::Testing::checked(std::malloc(size));
}

void* operator new(std::size_t size, std::align_val_t alignment) {
    const auto step = static_cast<std::size_t>(alignment);
    return Tessaline::Testing::checked(std::aligned_alloc(step, (size + step - 1) / step * step));
}

void operator delete(void* memory) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::align_val_t) noexcept {
    std::free(memory);
}

void operator delete(void* memory, std::size_t, std::align_val_t) noexcept {
    std::free(memory);
}
