// SPDX-License-Identifier: Apache-2.0
#pragma once

// The environment of one run of a process: it gives steps their execution contexts and polices
// nesting. A session lives for one submission and is used by one thread.

#include "tessaline/execution/cpu_execution_context.h"
#include "tessaline/execution/gpu_session_side.h"

namespace Tessaline {

class TESSALINE_API BackendExecutionSession {
  public:
    using GpuSubmission = Tessaline::GpuSubmission;

    /// Selects the constructor that trusts its map of runtimes.
    struct TrustedGpuRuntimeCatalogue {};

    /// A CPU session: no device, policy Reject. A null runtime means serial kernels.
    explicit BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime);
    BackendExecutionSession();

    /// A session on devices. `stream` is what the selected device is to use. Raises
    /// std::invalid_argument for a negative id, a null runtime or one of another device in the map,
    /// for a selected device without a runtime and for a stream that is not on it.
    BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime, GpuRuntimeMap runtimes,
                            std::optional<std::int32_t> selected_device,
                            std::optional<CudaStreamRef> stream,
                            CrossDevicePolicy cross_device_policy);
    /// On one device, which is selected. A null `gpu_runtime` means no device.
    BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime,
                            std::shared_ptr<GpuDeviceRuntime> gpu_runtime,
                            std::optional<CudaStreamRef> stream,
                            CrossDevicePolicy cross_device_policy);
    BackendExecutionSession(std::shared_ptr<GpuDeviceRuntime> gpu_runtime,
                            std::optional<CudaStreamRef> stream,
                            CrossDevicePolicy cross_device_policy);
    explicit BackendExecutionSession(std::shared_ptr<GpuDeviceRuntime> gpu_runtime);
    /// On a map of make_trusted_gpu_runtime_catalogue, which is neither copied nor looked through.
    BackendExecutionSession(TrustedGpuRuntimeCatalogue, std::shared_ptr<CpuRuntimeContext> cpu,
                            std::shared_ptr<const GpuRuntimeMap> runtimes,
                            std::optional<std::int32_t> selected_device,
                            std::optional<CudaStreamRef> stream,
                            CrossDevicePolicy cross_device_policy);

    BackendExecutionSession(const BackendExecutionSession&) = delete;
    BackendExecutionSession& operator=(const BackendExecutionSession&) = delete;
    /// Gives pool streams back; waits for nothing.
    ~BackendExecutionSession();

    /// Raises std::invalid_argument for what a session refuses in a map.
    static std::shared_ptr<const GpuRuntimeMap>
    make_trusted_gpu_runtime_catalogue(GpuRuntimeMap runtimes);

    /// The context of a CPU family. Raises std::logic_error for any other.
    CpuExecutionContext& cpu(BackendKind kind);

    /// Empty in a CPU session.
    const GpuRuntimeMap& gpu_runtimes() const { return gpu_.runtimes(); }
    /// Null when there is none.
    GpuDeviceRuntime* gpu_runtime(std::int32_t device) const { return gpu_.runtime(device); }
    /// Null when no device is selected.
    GpuDeviceRuntime* selected_gpu_runtime() const;
    /// Raises std::logic_error when no device is selected.
    std::int32_t selected_gpu_device_id() const;
    CrossDevicePolicy cross_device_policy() const { return gpu_.cross_device_policy(); }

    /// The context of a device, made at first use, when it takes a stream: the caller's on the
    /// selected device, else one of the device's pool. Records a submission between begin and end.
    /// Raises std::logic_error for a device without a runtime, std::runtime_error where no stream
    /// is free and waiting might never end, and what GpuExecutionContext does.
    GpuExecutionContext& gpu(std::int32_t device) { return gpu_.context(device); }

    /// Acquires the contexts of all these devices in ascending order, before the first step, so
    /// that sessions cannot wait for each other in a cycle. Raises std::invalid_argument for a
    /// negative device and std::logic_error for one without a runtime, before anything is acquired.
    void prepare_gpu_contexts(std::span<const std::int32_t> devices) {
        gpu_.prepare_contexts(devices);
    }
    bool has_active_gpu() const { return gpu_.has_contexts(); }
    /// Waits for the stream of every context, and raises the first failure.
    void synchronize_active_gpu() { gpu_.synchronise_contexts(); }

    /// The mark around a process. A second begin without an end raises std::logic_error. What was
    /// recorded in between can be read until the next begin.
    void begin_process_gpu_submission() { gpu_.begin_submissions(); }
    void end_process_gpu_submission() noexcept { gpu_.end_submissions(); }
    void record_process_gpu_submission(const GpuExecutionContext& context) {
        gpu_.record_submission(context);
    }
    std::span<const GpuSubmission> process_gpu_submissions() const { return gpu_.submissions(); }
    /// The stream of a submission of this session, kept checked out.
    CudaStreamRef process_gpu_submission_stream(const GpuSubmission& submission) const {
        return gpu_.submission_stream(submission);
    }

    /// Waits for what the last process submitted to devices. Returns the first error of work that
    /// surely ended, null when all went well; raises when completion could not be confirmed.
    std::exception_ptr synchronize_process_gpu() { return gpu_.synchronise_submissions(); }

  private:
    GpuSessionSide gpu_;
    CpuExecutionContext cpu_scalar_context_;
    CpuExecutionContext cpu_simd_context_;
};

} // namespace Tessaline
