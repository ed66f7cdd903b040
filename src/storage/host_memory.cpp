// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/host_memory.h"

#include "tessaline/storage/element_count.h"

#include <limits>
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

namespace {

[[noreturn]] void fail_too_large() {
    throw std::length_error("cannot create std::vector larger than max_size()");
}

} // namespace

std::uint64_t checked_element_count(std::uint64_t rows, std::uint64_t cols) {
    std::uint64_t count = 0;
    if (__builtin_mul_overflow(rows, cols, &count)) {
        fail_too_large();
    }
    return count;
}

std::size_t checked_byte_count(std::uint64_t count, std::size_t element_size) {
    if (count >
        static_cast<std::uint64_t>(std::numeric_limits<std::ptrdiff_t>::max()) / element_size) {
        fail_too_large();
    }
    return count * element_size;
}

} // namespace Tessaline
