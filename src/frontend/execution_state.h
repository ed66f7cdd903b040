// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a submitted run leaves behind until it has been settled.

#include "tessaline/frontend/backend_executor.h"

#include <exception>

namespace Tessaline {

/// A run is settled when all its device work is known to have ended, the caller's bindings have
/// been restored and the steps released. Until then a device may touch what lies here.
struct BackendExecutor::Execution::State {
    /// An event recorded behind the work of one stream.
    struct Completion {
        std::int32_t device_id;
        CUevent_st* event;
    };

    // Members die from the last to the first: steps and their temporaries before the streams and
    // runtimes that their memory came from.
    std::vector<Completion> completions;
    std::vector<CudaStreamRef> unrecorded_streams;     ///< without an event, so still checked out
    std::shared_ptr<const GpuRuntimeMap> gpu_runtimes; ///< outlive the executor's own
    std::optional<CudaStreamRef> cuda_stream;          ///< the run's
    std::optional<BackendProcess> owned_process;       ///< engaged by submit
    std::optional<BackendExecutionBindings> owned_bindings; ///< engaged by submit
    std::shared_ptr<BackendProcess::StepQueue>
        retained_steps;                               ///< set where the process is borrowed
    const BackendProcess* borrowed_process = nullptr; ///< the same
    BackendExecutionBindings* bindings = nullptr;     ///< those of the run
    bool finished = false;
    std::exception_ptr error; ///< first failure of the run

    /// Puts an event behind the work of a stream. Where that fails, keeps the stream itself, and
    /// the failure. The lists have room.
    void record_completion(CudaStreamRef stream) noexcept;

    /// Settles a run without device work.
    void finish_without_completion() noexcept;

    /// Waits for device work and settles the run; raises its first failure. Raises without settling
    /// where the end of that work could not be confirmed.
    void wait();

    bool completed() const;

  private:
    GpuDeviceRuntime& device(std::int32_t id) const { return *gpu_runtimes->at(id); }
    bool confirm_completion(std::exception_ptr& first);
    void destroy_events(std::exception_ptr& first);
    void restore_bindings();
    void release() noexcept;
};

} // namespace Tessaline
