// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/backend_executor.h"

#include "backend/cpu/runtime/run_stop.h"
#include "backend/cpu/runtime/stop_point.h"

#include <exception>
#include <optional>
#include <stdexcept>
#include <utility>

namespace Tessaline {

/// A run on the CPU is over when it has been submitted, so its state is always settled: what is
/// left is the first failure.
struct BackendExecutor::Execution::State {
    std::optional<BackendProcess> owned_process;            ///< engaged by submit
    std::optional<BackendExecutionBindings> owned_bindings; ///< engaged by submit
    std::exception_ptr error;                               ///< first failure of the run

    void settle(BackendExecutionBindings& bindings) noexcept {
        bindings.restore_adapted();
        owned_bindings.reset();
        owned_process.reset();
    }
};

BackendExecutor::Execution::Execution() = default;
BackendExecutor::Execution::Execution(std::unique_ptr<State> state) : state_(std::move(state)) {}
BackendExecutor::Execution::Execution(Execution&& other) noexcept = default;
BackendExecutor::Execution&
BackendExecutor::Execution::operator=(Execution&& other) noexcept = default;
BackendExecutor::Execution::~Execution() = default;

void BackendExecutor::Execution::wait() {
    if (state_ && state_->error) {
        std::rethrow_exception(state_->error);
    }
}

bool BackendExecutor::Execution::completed() const {
    return true;
}

BackendExecutor::BackendExecutor(CpuRuntimeOptions options, CpuOnlyTag)
    : cpu_runtime_(std::make_shared<CpuRuntimeContext>(std::move(options), BackendKind::cpu_simd)) {
}

BackendExecutor BackendExecutor::cpu_only(CpuRuntimeOptions options) {
    return {std::move(options), CpuOnlyTag{}};
}

void BackendExecutor::execute(const BackendProcess& process, BackendExecutionBindings& bindings,
                              ExecutionOptions options) const {
    run(process, bindings, options, std::make_unique<Execution::State>()).wait();
}

BackendExecutor::Execution BackendExecutor::submit(BackendProcess process,
                                                   BackendExecutionBindings bindings,
                                                   ExecutionOptions options) const {
    if (!bindings.adapted.empty()) {
        throw std::invalid_argument(
            "BackendExecutor::submit - pre-adapted bindings are unsupported");
    }
    auto state = std::make_unique<Execution::State>();
    const BackendProcess& owned_process = state->owned_process.emplace(std::move(process));
    BackendExecutionBindings& owned_bindings = state->owned_bindings.emplace(std::move(bindings));
    return run(owned_process, owned_bindings, options, std::move(state));
}

BackendExecutor::Execution BackendExecutor::submit_borrowed(const BackendProcess& process,
                                                            BackendExecutionBindings& bindings,
                                                            ExecutionOptions options) const {
    return run(process, bindings, options, std::make_unique<Execution::State>());
}

BackendExecutor::Execution BackendExecutor::run(const BackendProcess& process,
                                                BackendExecutionBindings& bindings,
                                                const ExecutionOptions& options,
                                                std::unique_ptr<Execution::State> state) const {
    const auto& plan = process.execution_plan();
    if (plan && plan->backend == BackendKind::cuda) {
        throw std::runtime_error("BackendExecutor::execute - CUDA execution is unavailable in a "
                                 "CPU-only executor");
    }
    BackendExecutionSession session(cpu_runtime_);
    RunStop stop(options.stop, options.interrupt);
    const bool may_end_early = options.stop.stop_possible() || options.interrupt;
    const RunStop::Scope scope(may_end_early ? &stop : RunStop::current());
    try {
        stop_point();
        process.execute_deferred(session, bindings);
    } catch (...) {
        state->error = std::current_exception();
    }
    state->settle(bindings);
    return Execution(std::move(state));
}

void BackendExecutor::mark_process_completion_unconfirmed(const BackendProcess& process) noexcept {
    process.mark_completion_unconfirmed_noexcept();
}

} // namespace Tessaline
