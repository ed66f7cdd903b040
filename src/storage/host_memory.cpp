// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/host_memory.h"

#include <new>
#include <stdexcept>

namespace Tessaline {

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
    return allocation;
}

void deallocate_host_bytes(HostAllocation allocation) noexcept {
    if (allocation.data != nullptr) {
        ::operator delete (allocation.data, std::align_val_t{allocation.alignment});
    }
}

} // namespace Tessaline
