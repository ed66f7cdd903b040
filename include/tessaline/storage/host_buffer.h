// SPDX-License-Identifier: Apache-2.0
#pragma once

// Owned pageable host memory of one element type, and the topology that owned buffers report.

#include "tessaline/catalogue/data_topology_descriptor.h"
#include "tessaline/storage/element_count.h"
#include "tessaline/storage/host_memory.h"
#include "tessaline/storage/numeric_policy.h"

#include <cstring>
#include <span>

namespace Tessaline {

/// Alignment of host buffers: a cache line and the widest vector for elements that kernels stream;
/// pivots are only walked.
template <BufferElement T>
inline constexpr std::size_t host_buffer_alignment = std::is_same_v<T, long> ? alignof(long) : 64;

/// Owns `size()` elements; const access is deep. A buffer of no elements has null data.
template <BufferElement T>
class TESSALINE_API HostBuffer {
  public:
    using value_type = T;

    HostBuffer() = default;
    /// `count` zeros. Raises as allocate_host_bytes does, and std::length_error for a count whose
    /// bytes overflow.
    explicit HostBuffer(std::size_t count, HostMemoryOptions options = {})
        : HostBuffer(Uninitialised{}, count, options) {
        if (size_ != 0) {
            std::memset(allocation_.data, 0, size_ * sizeof(T));
        }
    }
    /// A copy of `contents`.
    explicit HostBuffer(std::span<const T> contents, HostMemoryOptions options = {})
        : HostBuffer(Uninitialised{}, contents.size(), options) {
        if (size_ != 0) {
            std::memcpy(allocation_.data, contents.data(), size_ * sizeof(T));
        }
    }
    HostBuffer(HostBuffer&& other) noexcept
        : allocation_(std::exchange(other.allocation_, {})),
          data_(std::exchange(other.data_, nullptr)),
          size_(std::exchange(other.size_, 0)) {}
    HostBuffer& operator=(HostBuffer&& other) noexcept {
        if (this != &other) {
            release();
            allocation_ = std::exchange(other.allocation_, {});
            data_ = std::exchange(other.data_, nullptr);
            size_ = std::exchange(other.size_, 0);
        }
        return *this;
    }
    ~HostBuffer() { release(); }

    /// Gives the memory back and leaves the buffer empty.
    void release() noexcept {
        deallocate_host_bytes(std::exchange(allocation_, {}));
        data_ = nullptr;
        size_ = 0;
    }

    T* data() { return data_; }
    const T* data() const { return data_; }
    std::uint64_t size() const { return size_; }
    const HostAllocation& allocation() const { return allocation_; }

  private:
    struct Uninitialised {};

    HostBuffer(Uninitialised, std::size_t count, HostMemoryOptions options)
        : allocation_(allocate_host_bytes(checked_byte_count(count, sizeof(T)),
                                          host_buffer_alignment<T>, options)),
          data_(static_cast<T*>(allocation_.data)),
          size_(count) {}

    HostAllocation allocation_;
    T* data_ = nullptr;
    std::uint64_t size_ = 0;
};

#define TESSALINE_DECLARE_HOST_BUFFER(category, Stored, Compute)                                   \
    extern template class HostBuffer<Stored>;
TESSALINE_COMPILED_POLICIES(TESSALINE_DECLARE_HOST_BUFFER)
#undef TESSALINE_DECLARE_HOST_BUFFER
extern template class HostBuffer<long>;

namespace HostBufferDetail {

/// Where one buffer is known to lie.
struct Placement {
    std::int32_t effective_numa_id;
    bool guaranteed;
};

template <typename Buffer>
Placement placement_of(const Buffer& buffer) {
    return {buffer.allocation().effective_numa_id, buffer.allocation().placement_guaranteed};
}

TESSALINE_API DataTopologyDescriptor topology(DataLocation location, HostMemoryOptions options,
                                              std::span<const Placement> placements);

} // namespace HostBufferDetail

/// The topology of an operand in one or two host buffers of the same request. Two buffers have an
/// effective node when they agree on it, guaranteed when it is for both. A location that is not of
/// the host counts as pageable host, with no effective node.
template <typename... Buffer>
requires(sizeof...(Buffer) == 1 || sizeof...(Buffer) == 2) DataTopologyDescriptor
    host_buffers_topology(DataLocation location, HostMemoryOptions options,
                          const Buffer&... buffers) {
    const HostBufferDetail::Placement placements[]{HostBufferDetail::placement_of(buffers)...};
    return HostBufferDetail::topology(location, options, placements);
}

} // namespace Tessaline
