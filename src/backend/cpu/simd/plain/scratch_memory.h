// SPDX-License-Identifier: Apache-2.0
#pragma once

// Temporary memory of kernels and of what runs them. Allocated out of line, since units for one
// instruction set may instantiate nothing that other units share; for the same reason all that is
// defined here is always inlined.

#include "backend/cpu/simd/plain/block_sizes.h"

namespace Tessaline {

namespace ScratchMemory {

/// Aligned for any element. May raise std::bad_alloc.
void* allocate(std::uint64_t count, std::size_t element_size);
void release(void* memory);

} // namespace ScratchMemory

/// Memory for `count` elements, not initialised: within the object where they are few. T is
/// trivially destructible, and an object of it begins with its first store.
template <typename T>
class Scratch {
  public:
    /// May raise std::bad_alloc.
    [[gnu::always_inline]] explicit inline Scratch(std::uint64_t count)
        : data_(count <= few ? reinterpret_cast<T*>(own_)
                             : static_cast<T*>(ScratchMemory::allocate(count, sizeof(T)))) {}
    Scratch(const Scratch&) = delete;
    Scratch& operator=(const Scratch&) = delete;
    [[gnu::always_inline]] inline ~Scratch() {
        if (data_ != reinterpret_cast<T*>(own_)) {
            ScratchMemory::release(data_);
        }
    }

    [[gnu::always_inline]] inline T* data() const { return data_; }

  private:
    /// 16 KiB, half of the first cache.
    static constexpr std::uint64_t few = (std::uint64_t{16} << 10U) / sizeof(T);

    static_assert(alignof(T) <= __STDCPP_DEFAULT_NEW_ALIGNMENT__);
    alignas(T) std::byte own_[few * sizeof(T)];
    T* const data_;
};

/// `packing_bytes` of memory that belong to the calling thread while it runs, aligned to cache
/// lines, for the part of a matrix that a product reads again and again. Allocated at a thread's
/// first call, which may raise std::bad_alloc.
void* packing_memory();

} // namespace Tessaline
