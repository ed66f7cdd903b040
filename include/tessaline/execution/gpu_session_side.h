// SPDX-License-Identifier: Apache-2.0
#pragma once

// The device half of a session: the contexts of its devices, and what the current process submitted
// to them. A CPU session's is empty.

#include "tessaline/execution/gpu_execution_context.h"

#include <exception>
#include <span>
#include <vector>

namespace Tessaline {

/// A stream to which a process submitted work.
struct GpuSubmission {
    std::int32_t device_id;
    CUstream_st* stream;

    bool operator==(const GpuSubmission&) const = default;
};

/// Used by one thread, that of its session.
class TESSALINE_API GpuSessionSide {
  public:
    /// No devices.
    GpuSessionSide() = default;
    /// `runtimes` have been validated. Raises std::invalid_argument for a null map, a selected
    /// device without a runtime, and a stream that is not on the selected device.
    GpuSessionSide(std::shared_ptr<const GpuRuntimeMap> runtimes,
                   std::optional<std::int32_t> selected_device, std::optional<CudaStreamRef> stream,
                   CrossDevicePolicy cross_device_policy);
    GpuSessionSide(const GpuSessionSide&) = delete;
    GpuSessionSide& operator=(const GpuSessionSide&) = delete;
    ~GpuSessionSide();

    const GpuRuntimeMap& runtimes() const;
    /// Null when there is none.
    GpuDeviceRuntime* runtime(std::int32_t device) const;
    const std::optional<std::int32_t>& selected_device() const { return selected_device_; }
    CrossDevicePolicy cross_device_policy() const { return cross_device_policy_; }

    /// The operations of BackendExecutionSession of like names.
    GpuExecutionContext& context(std::int32_t device);
    void prepare_contexts(std::span<const std::int32_t> devices);
    bool has_contexts() const { return !contexts_.empty(); }
    void synchronise_contexts();

    void begin_submissions();
    void end_submissions() noexcept { submitting_ = false; }
    void record_submission(const GpuExecutionContext& context);
    std::span<const GpuSubmission> submissions() const { return submissions_; }
    CudaStreamRef submission_stream(const GpuSubmission& submission) const;
    std::exception_ptr synchronise_submissions();

  private:
    struct PendingEvent {
        std::int32_t device_id;
        CUevent_st* event;
    };

    GpuExecutionContext* find_context(std::int32_t device) const;
    std::unique_ptr<GpuExecutionContext> make_context(std::int32_t device);
    CudaStreamRef acquire_pool_stream(GpuDeviceRuntime& runtime) const;
    /// Both tell whether all that they reached has surely ended, and keep the first failure.
    bool record_pending_events(std::exception_ptr& first);
    bool finish_pending_events(std::exception_ptr& first);

    std::shared_ptr<const GpuRuntimeMap> runtimes_; ///< null in a CPU session
    std::optional<std::int32_t> selected_device_;   ///< the device of the operation
    CrossDevicePolicy cross_device_policy_ = CrossDevicePolicy::Reject;
    std::optional<CudaStreamRef> borrowed_stream_;        ///< what the selected device is to use
    std::optional<std::int32_t> highest_acquired_device_; ///< that a pool's stream was taken of
    /// One for each device touched; at addresses that stay.
    std::vector<std::unique_ptr<GpuExecutionContext>> contexts_;
    std::vector<GpuSubmission> submissions_; ///< of the current process, in order of first use
    std::vector<PendingEvent> pending_;      ///< in flight inside synchronise_submissions
    bool submitting_ = false;                ///< between begin and end
};

} // namespace Tessaline
