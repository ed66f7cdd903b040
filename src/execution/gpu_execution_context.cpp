// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/gpu_execution_context.h"

#include <stdexcept>
#include <string>

namespace Tessaline {

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument("GpuExecutionContext - " + what);
}

} // namespace

// Out of line, so that each interface has one virtual table across shared objects.
GpuDeviceRuntime::~GpuDeviceRuntime() = default;
GpuExecutionContext::~GpuExecutionContext() = default;

GpuExecutionContext::GpuExecutionContext(std::shared_ptr<GpuDeviceRuntime> runtime,
                                         CudaStreamRef stream, NullStream null_stream)
    : runtime_(std::move(runtime)),
      stream_(std::move(stream)) {
    validate_stream(null_stream);
}

void GpuExecutionContext::validate_stream(NullStream null_stream) const {
    if (!runtime_) {
        refuse("runtime context must not be null");
    }
    if (stream() == nullptr && null_stream == NullStream::refused) {
        refuse("CUDA stream must not be null");
    }
    const std::string declared = std::to_string(device_id());
    if (device_id() != runtime_->device_id()) {
        refuse("CUDA stream device " + declared + " does not match runtime device " +
               std::to_string(runtime_->device_id()));
    }
    if (stream() == nullptr) {
        return; // the default stream has no device that could be asked for
    }
    std::int32_t actual = 0;
    try {
        actual = runtime_->stream_device(stream());
    } catch (const std::runtime_error& failure) {
        refuse(std::string("failed to query CUDA stream device: ") + failure.what());
    }
    if (actual != device_id()) {
        refuse("CUDA stream declared for device " + declared + " belongs to device " +
               std::to_string(actual));
    }
}

} // namespace Tessaline
