// SPDX-License-Identifier: Apache-2.0
#pragma once

// Runs processes on long-lived runtimes, and the handle of a run that may still be under way.

#include "tessaline/backend/cpu/cpu_runtime_context.h"
#include "tessaline/execution/backend_process.h"

#include <functional>
#include <memory>
#include <stop_token>

namespace Tessaline {

/// Owns the runtimes of one caller. Runs are const: several threads may run at once, each with a
/// session of its own.
class TESSALINE_API BackendExecutor {
  public:
    struct CpuOnlyTag {};

    /// What a caller may choose about one run.
    ///
    /// Either field may end a run before its end: before its first step, or between two sweeps,
    /// iterations, panels or blocks of a long operation. The content of the outputs is then
    /// unspecified; everything else is as after any run. A run that is about to end may still
    /// succeed. The kernels of plugins run to their end. A run that another one's step makes ends
    /// with that one as well.
    struct ExecutionOptions {
        /// The run ends with OperationStopped once a stop has been requested, from any thread.
        std::stop_token stop;
        /// Called some twenty times a second while a long operation runs, less often where it takes
        /// long itself, on the thread that submitted the run. What it raises ends the run and is
        /// the run's failure. It may run operations.
        std::function<void()> interrupt;
    };

    /// Stands for submitted work. Movable; used by one thread at a time.
    class TESSALINE_API Execution {
      public:
        struct State;

        Execution();
        Execution(Execution&& other) noexcept;
        Execution& operator=(Execution&& other) noexcept;
        ~Execution();

        /// Returns when the run is complete and rethrows its first failure, as often as asked.
        void wait();
        /// Whether the run is complete, without waiting. It does not settle the run: wait() tells
        /// of failures.
        bool completed() const;

      private:
        friend class BackendExecutor;
        explicit Execution(std::unique_ptr<State> state);

        std::unique_ptr<State> state_;
    };

    /// No device. Raises what CpuRuntimeContext raises for its options.
    BackendExecutor(CpuRuntimeOptions options, CpuOnlyTag tag);
    static BackendExecutor cpu_only(CpuRuntimeOptions options = {});

    /// Runs a process and waits for its end; raises the failure of the run. The caller's bindings
    /// are given back in every case. Raises std::runtime_error, before anything ran, for a CUDA
    /// plan in an executor without devices, and OperationStopped.
    void execute(const BackendProcess& process, BackendExecutionBindings& bindings,
                 ExecutionOptions options = {}) const;

    /// Takes process and bindings over. Raises std::invalid_argument for bindings that adaptation
    /// displaced already, and what execute raises before a run; failures of the run itself come
    /// from Execution::wait.
    Execution submit(BackendProcess process, BackendExecutionBindings bindings,
                     ExecutionOptions options = {}) const;

    /// The caller keeps both alive, and untouched, until the run has finished.
    Execution submit_borrowed(const BackendProcess& process, BackendExecutionBindings& bindings,
                              ExecutionOptions options = {}) const;

    CrossDevicePolicy cross_device_policy() const { return cross_device_policy_; }
    const GpuSchedulingOptions& gpu_scheduling_options() const { return gpu_scheduling_; }
    const std::shared_ptr<CpuRuntimeContext>& cpu_runtime() const { return cpu_runtime_; }

    static void mark_process_completion_unconfirmed(const BackendProcess& process) noexcept;

  private:
    Execution run(const BackendProcess& process, BackendExecutionBindings& bindings,
                  const ExecutionOptions& options, std::unique_ptr<Execution::State> state) const;

    std::shared_ptr<CpuRuntimeContext> cpu_runtime_;
    GpuSchedulingOptions gpu_scheduling_;
    CrossDevicePolicy cross_device_policy_ = CrossDevicePolicy::Reject;
};

} // namespace Tessaline
