// SPDX-License-Identifier: Apache-2.0
#pragma once

// Raw pageable host memory. Requests may name a NUMA node; no NUMA allocator is linked, so that a
// wish for a node is kept on record only and a strict request fails.

#include "tessaline/export.h"

#include <cstddef>
#include <cstdint>

namespace Tessaline {

/// How binding the requested NUMA node is.
enum class HostMemoryPolicy : std::int32_t {
    preferred = 0, ///< a wish
    strict = 1,    ///< allocation fails when the node cannot be honoured
};

/// Where host memory should lie.
struct HostMemoryOptions {
    std::int32_t numa_node = -1; ///< requested NUMA node, -1 for none
    HostMemoryPolicy policy = HostMemoryPolicy::preferred;

    friend bool operator==(const HostMemoryOptions&, const HostMemoryOptions&) = default;
};

/// Which allocator took the memory. The values between are free for NUMA allocators.
enum class HostAllocator : std::int32_t { none = 0, aligned_heap = 2 };

/// One raw allocation.
struct HostAllocation {
    void* data = nullptr;                ///< null when `bytes` is 0
    std::uint64_t bytes = 0;             ///< size
    std::uint64_t alignment = 0;         ///< as passed to the allocator, needed to free
    std::int32_t requested_numa_id = -1; ///< node of the request
    std::int32_t effective_numa_id = -1; ///< node where the memory is known to lie, -1 unknown
    HostAllocator allocator = HostAllocator::none;
    bool placement_guaranteed = false; ///< whether the effective node is a guarantee
};

/// Takes uninitialised memory; `alignment` is a power of two. Raises std::invalid_argument for a
/// strict request whose node is unavailable, also for no bytes, and std::bad_alloc.
TESSALINE_API HostAllocation allocate_host_bytes(std::size_t bytes, std::size_t alignment,
                                                 HostMemoryOptions options);
/// Gives memory back; does nothing for null data.
TESSALINE_API void deallocate_host_bytes(HostAllocation allocation) noexcept;

/// Whether host memory can be placed on NUMA nodes at all: no.
TESSALINE_API bool host_numa_allocator_available() noexcept;
/// Whether host memory can be placed on this node: no.
TESSALINE_API bool host_numa_node_available(int node) noexcept;

} // namespace Tessaline
