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
    /// Either of the last two fields may end a run before its end: before its first step, or
    /// between two sweeps, iterations, panels or blocks of a long operation. The content of the
    /// outputs is then unspecified; everything else is as after any run. A run that is about to end
    /// may still succeed. The kernels of plugins run to their end. A run that another one's step
    /// makes ends with that one as well.
    struct ExecutionOptions {
        /// What the selected device is to use, in place of the executor's own; unused on the CPU.
        std::optional<CudaStreamRef> cuda_stream;
        /// The run ends with OperationStopped once a stop has been requested, from any thread.
        std::stop_token stop;
        /// Called some twenty times a second while a long operation runs, less often where it takes
        /// long itself, on the thread that submitted the run. What it raises ends the run and is
        /// the run's failure. It may run operations.
        std::function<void()> interrupt;
    };

    /// Stands for submitted work. Movable, also to another thread; used by one thread at a time.
    ///
    /// A run on the CPU is over when its handle comes back. Work on devices may go on: a handle
    /// that is dropped or assigned over waits for it, and since it must not raise, a failure that
    /// nobody asked for becomes one line on stderr. Where the end of device work cannot be
    /// confirmed, what that work may still touch is never freed.
    class TESSALINE_API Execution {
      public:
        struct State;

        Execution();
        Execution(Execution&& other) noexcept;
        Execution& operator=(Execution&& other) noexcept;
        ~Execution();

        /// Returns when the run is complete and the bindings are the caller's again; rethrows the
        /// run's first failure, as often as asked. Where the end of device work cannot be confirmed
        /// it raises that failure, the process can no more be used, and another call tries again.
        void wait();
        /// Whether the run is complete, without waiting. It does not settle the run: wait() tells
        /// of failures and gives the bindings back. Raises BackendLibraryError for a device that
        /// cannot be asked.
        bool completed() const;

      private:
        friend class BackendExecutor;
        explicit Execution(std::unique_ptr<State> state);
        void discard_state_noexcept() noexcept;

        std::unique_ptr<State> state_;
    };

    /// No device. Raises what CpuRuntimeContext raises for its options.
    BackendExecutor(CpuRuntimeOptions options, CpuOnlyTag tag);
    static BackendExecutor cpu_only(CpuRuntimeOptions options = {});

    /// On the runtimes of devices that live already. The first device is the one of runs whose
    /// operands lie on none; without any, the executor runs on the CPU alone. `default_stream`, if
    /// any, is what runs use that name no stream. Raises std::invalid_argument for a null runtime
    /// and for two of one device.
    BackendExecutor(CpuRuntimeOptions options,
                    const std::vector<std::shared_ptr<GpuDeviceRuntime>>& devices,
                    std::optional<CudaStreamRef> default_stream,
                    CrossDevicePolicy cross_device_policy, GpuSchedulingOptions gpu_scheduling);

    /// Runs a process and waits for its end; raises the failure of the run. The caller's bindings
    /// are given back once the end of the run is confirmed. Raises OperationStopped and, before
    /// anything ran, std::runtime_error for a CUDA plan in an executor without devices and what
    /// select_gpu_execution_device, validate_gpu_execution_device and a session refuse.
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
    using StatePointer = std::unique_ptr<Execution::State>;

    Execution run(const BackendProcess& process, BackendExecutionBindings& bindings,
                  const ExecutionOptions& options, StatePointer state) const;
    void run_on_cpu(const BackendProcess& process, BackendExecutionBindings& bindings,
                    const ExecutionOptions& options, Execution::State& state) const;
    void run_on_device(const BackendProcess& process, BackendExecutionBindings& bindings,
                       const ExecutionOptions& options, Execution::State& state) const;
    std::int32_t choose_device(const std::optional<BackendProcess::ExecutionPlan>& plan,
                               const BackendExecutionBindings& bindings,
                               CrossDevicePolicy policy) const;

    std::shared_ptr<CpuRuntimeContext> cpu_runtime_;
    GpuSchedulingOptions gpu_scheduling_;
    std::vector<std::int32_t> scope_devices_; ///< the first is the primary one; empty: CPU only
    CrossDevicePolicy cross_device_policy_ = CrossDevicePolicy::Reject;
    std::shared_ptr<const GpuRuntimeMap> gpu_runtimes_;
    std::optional<CudaStreamRef> default_stream_;
};

} // namespace Tessaline
