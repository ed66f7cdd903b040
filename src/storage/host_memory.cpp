// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/host_memory.h"

#include <cstdint>
#include <new>
#include <stdexcept>
#include <sys/mman.h>

namespace Tessaline {

namespace {

/// From this size on memory is asked for in pages of 2 MiB: the first touch of one takes a tenth of
/// the time that its 512 small pages take.
constexpr std::size_t least_bytes_of_huge_pages = std::size_t{4} << 20U;

/// A wish; where it cannot be met the memory has small pages.
void prefer_huge_pages(void* data, std::size_t bytes) noexcept {
    constexpr std::uintptr_t page = 4096;
    const std::uintptr_t begin = (reinterpret_cast<std::uintptr_t>(data) + page - 1) / page * page;
    const std::uintptr_t end = (reinterpret_cast<std::uintptr_t>(data) + bytes) / page * page;
    madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
}

} // namespace

bool host_numa_allocator_available() noexcept {
    return false;
}

bool host_numa_node_available(int /*node*/) noexcept {
    return host_numa_allocator_available();
}

HostAllocation allocate_host_bytes(std::size_t bytes, std::size_t alignment,
                                   HostMemoryOptions options) {
    const bool node_available = host_numa_node_available(options.numa_node);
    if (options.policy == HostMemoryPolicy::strict && !node_available) {
        throw std::invalid_argument("allocate_host_bytes - requested NUMA node is unavailable");
    }
    HostAllocation allocation;
    allocation.bytes = bytes;
    allocation.alignment = alignment;
    allocation.requested_numa_id = options.numa_node;
    if (bytes == 0) {
        // No memory lies nowhere else.
        allocation.effective_numa_id = node_available ? options.numa_node : -1;
        allocation.placement_guaranteed = node_available;
        return allocation;
    }
    allocation.data = ::operator new (bytes, std::align_val_t{alignment});
    allocation.allocator = HostAllocator::aligned_heap;
    if (bytes >= least_bytes_of_huge_pages) {
        prefer_huge_pages(allocation.data, bytes);
    }
    return allocation;
}

void deallocate_host_bytes(HostAllocation allocation) noexcept {
    if (allocation.data != nullptr) {
        ::operator delete (allocation.data, std::align_val_t{allocation.alignment});
    }
}

} // namespace Tessaline
