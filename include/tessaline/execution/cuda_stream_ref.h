// SPDX-License-Identifier: Apache-2.0
#pragma once

// A stream of a device, and what keeps it from other runs.

#include <cstdint>
#include <memory>
#include <utility>

struct CUstream_st; // NOLINT(readability-identifier-naming): the name is CUDA's

namespace Tessaline {

/// Copyable. A stream from a pool goes back when the last reference to it is gone; a stream that
/// its caller supplied has no owner, and the caller keeps it alive.
class CudaStreamRef {
  public:
    CudaStreamRef(CUstream_st* stream, std::int32_t device, std::shared_ptr<const void> lease)
        : stream_(stream),
          device_(device),
          lease_(std::move(lease)) {}

    /// A stream that is the caller's. Null stands for the device's default stream.
    static CudaStreamRef external(CUstream_st* stream, std::int32_t device) {
        return {stream, device, nullptr};
    }

    CUstream_st* get() const { return stream_; }
    std::int32_t device_id() const { return device_; }
    bool is_pool_managed() const { return lease_ != nullptr; }

  private:
    CUstream_st* stream_;
    std::int32_t device_;
    std::shared_ptr<const void> lease_;
};

} // namespace Tessaline
