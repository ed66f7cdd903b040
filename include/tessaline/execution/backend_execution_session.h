// SPDX-License-Identifier: Apache-2.0
#pragma once

// The environment of one run of a process: it gives steps their execution contexts and polices
// nesting. A session lives for one submission and is used by one thread.

#include "tessaline/execution/cpu_execution_context.h"
#include "tessaline/execution/gpu_session_side.h"

#include <memory>
#include <span>

namespace Tessaline {

class TESSALINE_API BackendExecutionSession {
  public:
    /// A CPU session: no device, policy Reject. A null runtime means serial kernels.
    explicit BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> runtime = nullptr);
    /// A session with a device half.
    BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> runtime,
                            std::unique_ptr<GpuSessionSide> gpu);
    BackendExecutionSession(const BackendExecutionSession&) = delete;
    BackendExecutionSession& operator=(const BackendExecutionSession&) = delete;
    ~BackendExecutionSession();

    /// The context of a CPU family. Raises std::logic_error for any other.
    CpuExecutionContext& cpu(BackendKind kind);

    /// Null when no device is selected.
    BackendRuntimeContext* selected_gpu_runtime() const;
    /// Raises std::logic_error when no device is selected.
    std::int32_t selected_gpu_device_id() const;
    CrossDevicePolicy cross_device_policy() const;

    /// Acquires the contexts of all these devices in ascending order, before the first step, so
    /// that sessions cannot wait for each other in a cycle. Raises std::invalid_argument for a
    /// negative device and std::logic_error for one without a runtime, before anything is acquired.
    void prepare_gpu_contexts(std::span<const std::int32_t> devices);

    /// The mark around a process. A second begin without an end raises std::logic_error.
    void begin_process_gpu_submission();
    void end_process_gpu_submission() noexcept;

    /// Waits for what the last process submitted to devices. Returns the first error of work that
    /// surely ended, null when all went well; raises when completion could not be confirmed.
    std::exception_ptr synchronize_process_gpu();

  private:
    std::unique_ptr<GpuSessionSide> gpu_; ///< null in a CPU session
    bool process_submission_active_ = false;
    CpuExecutionContext cpu_scalar_context_;
    CpuExecutionContext cpu_simd_context_;
};

} // namespace Tessaline
