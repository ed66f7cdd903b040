// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/backend_executor.h"

#include "backend/cpu/runtime/run_stop.h"
#include "backend/cpu/runtime/stop_point.h"
#include "execution/first_failure.h"
#include "frontend/execution_state.h"

#include <algorithm>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

constexpr const char* run_name = "BackendExecutor::execute";

std::vector<OperandPlacement> placements_of(const BackendExecutionBindings& bindings) {
    std::vector<OperandPlacement> placements;
    placements.reserve(bindings.roles.size());
    for (const OperandRole role : bindings.roles) {
        placements.push_back(
            {role, operand_topology(bindings.operands.at(role)), bindings.outputs.contains(role)});
    }
    return placements;
}

/// Walks the steps, which may end early where the options of the run say so.
void walk(const BackendProcess& process, BackendExecutionSession& session,
          BackendExecutionBindings& bindings, const BackendExecutor::ExecutionOptions& options) {
    RunStop stop(options.stop, options.interrupt);
    const bool may_end_early = options.stop.stop_possible() || options.interrupt;
    const RunStop::Scope scope(may_end_early ? &stop : RunStop::current());
    stop_point();
    process.execute_deferred(session, bindings);
}

} // namespace

BackendExecutor::Execution::Execution() = default;
BackendExecutor::Execution::Execution(std::unique_ptr<State> state) : state_(std::move(state)) {}
BackendExecutor::Execution::Execution(Execution&& other) noexcept = default;

BackendExecutor::Execution& BackendExecutor::Execution::operator=(Execution&& other) noexcept {
    if (this != &other) {
        discard_state_noexcept();
        state_ = std::move(other.state_);
    }
    return *this;
}

BackendExecutor::Execution::~Execution() {
    discard_state_noexcept();
}

void BackendExecutor::Execution::wait() {
    if (state_) {
        state_->wait();
    }
}

bool BackendExecutor::Execution::completed() const {
    return !state_ || state_->completed();
}

void BackendExecutor::Execution::discard_state_noexcept() noexcept {
    if (state_ && !state_->finished) {
        try {
            state_->wait();
        } catch (const std::exception& failure) {
            std::fprintf(stderr, "Tessaline execution cleanup failed: %s\n", failure.what());
        } catch (...) {
            std::fputs("Tessaline execution cleanup failed with an unknown error\n", stderr);
        }
        if (!state_->finished) {
            // A device may still touch the operands, steps and streams that the state owns.
            static_cast<void>(state_.release());
        }
    }
    state_.reset();
}

BackendExecutor::BackendExecutor(CpuRuntimeOptions options, CpuOnlyTag)
    : cpu_runtime_(std::make_shared<CpuRuntimeContext>(std::move(options), BackendKind::cpu_simd)) {
}

BackendExecutor::BackendExecutor(CpuRuntimeOptions options,
                                 const std::vector<std::shared_ptr<GpuDeviceRuntime>>& devices,
                                 std::optional<CudaStreamRef> default_stream,
                                 CrossDevicePolicy cross_device_policy,
                                 GpuSchedulingOptions gpu_scheduling)
    : BackendExecutor(std::move(options), CpuOnlyTag{}) {
    GpuRuntimeMap runtimes;
    for (const std::shared_ptr<GpuDeviceRuntime>& device : devices) {
        if (!device || !runtimes.emplace(device->device_id(), device).second) {
            throw std::invalid_argument(
                "BackendExecutor - device runtimes must not be null, and one a device");
        }
        scope_devices_.push_back(device->device_id());
    }
    gpu_runtimes_ =
        BackendExecutionSession::make_trusted_gpu_runtime_catalogue(std::move(runtimes));
    default_stream_ = std::move(default_stream);
    cross_device_policy_ = cross_device_policy;
    gpu_scheduling_ = gpu_scheduling;
}

BackendExecutor BackendExecutor::cpu_only(CpuRuntimeOptions options) {
    return {std::move(options), CpuOnlyTag{}};
}

void BackendExecutor::execute(const BackendProcess& process, BackendExecutionBindings& bindings,
                              ExecutionOptions options) const {
    submit_borrowed(process, bindings, std::move(options)).wait();
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
    auto state = std::make_unique<Execution::State>();
    state->borrowed_process = &process;
    state->retained_steps = process.retain_steps();
    return run(process, bindings, options, std::move(state));
}

BackendExecutor::Execution BackendExecutor::run(const BackendProcess& process,
                                                BackendExecutionBindings& bindings,
                                                const ExecutionOptions& options,
                                                StatePointer state) const {
    const auto& plan = process.execution_plan();
    const bool is_cpu_only = scope_devices_.empty();
    if (is_cpu_only && plan && plan->backend == BackendKind::cuda) {
        throw std::runtime_error(std::string(run_name) +
                                 " - CUDA execution is unavailable in a CPU-only executor");
    }
    if (plan ? plan->backend != BackendKind::cuda : is_cpu_only) {
        run_on_cpu(process, bindings, options, *state);
    } else {
        run_on_device(process, bindings, options, *state);
    }
    return Execution(std::move(state));
}

void BackendExecutor::run_on_cpu(const BackendProcess& process, BackendExecutionBindings& bindings,
                                 const ExecutionOptions& options, Execution::State& state) const {
    BackendExecutionSession session(cpu_runtime_);
    state.bindings = &bindings;
    keeping_first(state.error, [&] { walk(process, session, bindings, options); });
    state.finish_without_completion();
}

void BackendExecutor::run_on_device(const BackendProcess& process,
                                    BackendExecutionBindings& bindings,
                                    const ExecutionOptions& options,
                                    Execution::State& state) const {
    const auto& plan = process.execution_plan();
    const CrossDevicePolicy policy = plan ? plan->cross_device_policy : cross_device_policy_;
    const std::int32_t device = choose_device(plan, bindings, policy);
    state.gpu_runtimes = gpu_runtimes_;
    state.cuda_stream = options.cuda_stream ? options.cuda_stream : default_stream_;
    BackendExecutionSession session(BackendExecutionSession::TrustedGpuRuntimeCatalogue{},
                                    cpu_runtime_, gpu_runtimes_, device, state.cuda_stream, policy);
    state.completions.reserve(scope_devices_.size());
    state.unrecorded_streams.reserve(scope_devices_.size());
    state.bindings = &bindings;
    keeping_first(state.error, [&] { walk(process, session, bindings, options); });
    // Work may have been submitted before a step failed.
    const auto submissions = session.process_gpu_submissions();
    for (const GpuSubmission& submission : submissions) {
        state.record_completion(session.process_gpu_submission_stream(submission));
    }
    if (submissions.empty()) {
        state.finish_without_completion();
    } else if (state.error) {
        std::exception_ptr kept_by_the_state;
        keeping_first(kept_by_the_state, [&state] { state.wait(); });
    }
}

std::int32_t
BackendExecutor::choose_device(const std::optional<BackendProcess::ExecutionPlan>& plan,
                               const BackendExecutionBindings& bindings,
                               CrossDevicePolicy policy) const {
    const std::vector<OperandPlacement> placements = placements_of(bindings);
    if (plan && plan->cuda_device) {
        validate_gpu_execution_device(placements, scope_devices_, *plan->cuda_device, policy,
                                      run_name);
        return *plan->cuda_device;
    }
    return select_gpu_execution_device(placements, scope_devices_, scope_devices_.front(), policy,
                                       gpu_scheduling_, run_name);
}

void BackendExecutor::mark_process_completion_unconfirmed(const BackendProcess& process) noexcept {
    process.mark_completion_unconfirmed_noexcept();
}

} // namespace Tessaline
