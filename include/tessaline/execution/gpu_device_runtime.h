// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a run needs of a device: streams to submit work to, and points in them to wait for. Sessions
// and executors know devices by this face alone, and so need nothing of CUDA.

#include "tessaline/execution/backend_context.h"
#include "tessaline/execution/cuda_stream_ref.h"

#include <optional>
#include <unordered_map>

struct CUevent_st; // NOLINT(readability-identifier-naming): the name is CUDA's

namespace Tessaline {

/// The long-lived runtime of one device. Every call may come from any thread, enters the device,
/// and leaves the thread's current device as it was. A call into the device library that fails
/// raises BackendLibraryError.
class TESSALINE_API GpuDeviceRuntime : public BackendRuntimeContext {
  public:
    ~GpuDeviceRuntime() override;

    virtual std::int32_t device_id() const = 0;

    /// A stream of the device's pool. Waits, without limit, until one is free.
    virtual CudaStreamRef acquire_stream() = 0;
    /// A stream of the pool, empty where none is free.
    virtual std::optional<CudaStreamRef> try_acquire_stream() = 0;

    /// The device that a stream, not null, belongs to. Where that cannot be found out, raises
    /// std::runtime_error with the library's text for the reason and no other words.
    virtual std::int32_t stream_device(CUstream_st* stream) = 0;

    /// A new event that stands for all work of the stream so far. A failure leaves no event behind.
    virtual CUevent_st* record_event(CUstream_st* stream) = 0;
    /// Whether that work has ended, without waiting.
    virtual bool is_reached(CUevent_st* event) = 0;
    /// Waits until that work has ended. After a failure it is not known whether it has.
    virtual void synchronise_event(CUevent_st* event) = 0;
    virtual void destroy_event(CUevent_st* event) = 0;
    /// Waits until all work of the stream has ended.
    virtual void synchronise_stream(CUstream_st* stream) = 0;

  protected:
    GpuDeviceRuntime() = default;
};

/// Runtimes by device id.
using GpuRuntimeMap = std::unordered_map<std::int32_t, std::shared_ptr<GpuDeviceRuntime>>;

} // namespace Tessaline
