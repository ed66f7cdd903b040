// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a device step of a session works in: a device and the stream that the session uses on it.

#include "tessaline/execution/gpu_device_runtime.h"

namespace Tessaline {

class TESSALINE_API GpuExecutionContext final : public BackendExecutionContext {
  public:
    enum class NullStream { refused, is_default_stream };

    /// Keeps a stream from the pool checked out as long as it lives. Raises std::invalid_argument
    /// for a null runtime, a null stream where that is refused, and a stream of another device.
    GpuExecutionContext(std::shared_ptr<GpuDeviceRuntime> runtime, CudaStreamRef stream,
                        NullStream null_stream);
    ~GpuExecutionContext() override;

    BackendKind backend() const override { return BackendKind::cuda; }
    const std::shared_ptr<GpuDeviceRuntime>& runtime() const { return runtime_; }
    std::int32_t device_id() const { return stream_.device_id(); }
    CUstream_st* stream() const { return stream_.get(); }
    const CudaStreamRef& stream_ref() const { return stream_; }

  private:
    void validate_stream(NullStream null_stream) const;

    std::shared_ptr<GpuDeviceRuntime> runtime_;
    CudaStreamRef stream_;
};

} // namespace Tessaline
