// SPDX-License-Identifier: Apache-2.0
#pragma once

// The executable form of one chosen implementation: a list of steps and the plan that it was made
// for.

#include "tessaline/execution/backend_execution_bindings.h"
#include "tessaline/execution/backend_execution_session.h"

#include <exception>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace Tessaline {

/// One step of a process. It addresses operands by role through the bindings of the run.
class TESSALINE_API BackendProcessStep {
  public:
    BackendProcessStep() = default;
    BackendProcessStep(const BackendProcessStep&) = delete;
    BackendProcessStep& operator=(const BackendProcessStep&) = delete;
    virtual ~BackendProcessStep();

    virtual void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) = 0;
};

/// A process binds to no operand and holds no state of a run, so it may run any number of times,
/// one run after another. It runs on the thread that calls it.
class TESSALINE_API BackendProcess {
  public:
    using StepQueue = std::vector<std::unique_ptr<BackendProcessStep>>;

    struct PlannedOutput {
        OperandRole role;
        bool preserves_output;
    };

    /// For which backend, device and policy the process was made.
    struct ExecutionPlan {
        BackendKind backend;
        std::optional<std::int32_t> cuda_device; ///< CUDA plans only
        CrossDevicePolicy cross_device_policy;   ///< Reject on CPU plans
        std::vector<PlannedOutput> outputs;      ///< one entry for each output, in order
    };

    BackendProcess();
    BackendProcess(BackendProcess&&) noexcept = default;
    BackendProcess& operator=(BackendProcess&&) noexcept = default;
    ~BackendProcess();

    bool empty() const { return size() == 0; }
    std::size_t size() const { return steps_ ? steps_->size() : 0; }
    const std::optional<ExecutionPlan>& execution_plan() const { return plan_; }

    /// Replaces the plan. Raises std::invalid_argument for a negative device and for a CPU plan
    /// with CUDA options, std::logic_error for an unusable process.
    void set_execution_plan(ExecutionPlan plan);

    /// Both raise std::invalid_argument for a null step, std::logic_error for an unusable process.
    void push_front(std::unique_ptr<BackendProcessStep> step);
    void push_back(std::unique_ptr<BackendProcessStep> step);

    /// Runs the steps in order; the first exception stops the walk. On failure, and whenever steps
    /// displaced bindings, waits for device work and gives the caller's bindings back; the failure
    /// of a step is rethrown before any other. A plain run's device work stays queued.
    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) const;

    /// Runs the steps and leaves completion, and the bindings as the steps left them, to the
    /// caller.
    void execute_deferred(BackendExecutionSession& session,
                          BackendExecutionBindings& bindings) const;

    /// A second owner of the steps.
    std::shared_ptr<StepQueue> retain_steps() const { return steps_; }

    /// Makes the process unusable: a device may still work for it.
    void mark_completion_unconfirmed_noexcept() const noexcept { completion_unconfirmed_ = true; }

    /// Makes the process unusable and gives the steps up without destroying them, since destroying
    /// a step would free memory that a device may still touch.
    void quarantine_steps_noexcept() const noexcept;

    /// Raises std::logic_error, opened by `name`, for an unusable process.
    void ensure_usable(std::string_view name) const;

  private:
    void check_plan_against(const BackendExecutionSession& session) const;
    void prepare_run(BackendExecutionSession& session, BackendExecutionBindings& bindings) const;
    std::exception_ptr run_steps(BackendExecutionSession& session,
                                 BackendExecutionBindings& bindings) const;
    void settle(BackendExecutionSession& session, BackendExecutionBindings& bindings,
                std::exception_ptr failure) const;

    std::shared_ptr<StepQueue> steps_; ///< null only in a moved-from process
    std::optional<ExecutionPlan> plan_;
    mutable bool completion_unconfirmed_ = false;
};

} // namespace Tessaline
