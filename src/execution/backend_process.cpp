// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/backend_process.h"

#include "execution/default_floating_environment.h"
#include "execution/first_failure.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

[[noreturn]] void refuse_session(const std::string& what) {
    throw std::invalid_argument("BackendProcess::execute - " + what);
}

std::vector<std::int32_t> reachable_devices(std::int32_t selected,
                                            const BackendExecutionBindings& bindings) {
    std::vector<std::int32_t> devices{selected};
    const auto add = [&devices](std::optional<std::int32_t> device) {
        if (device) {
            devices.push_back(*device);
        }
    };
    for (const OperandRole role : bindings.roles) {
        add(gpu_binding_device_id(bindings, role));
        for (const OperandBinding& origin : bindings.adapted_origins(role)) {
            add(gpu_operand_device_id(origin));
        }
    }
    return devices;
}

} // namespace

BackendProcessStep::~BackendProcessStep() = default;

BackendProcess::BackendProcess() : steps_(std::make_shared<StepQueue>()) {}

BackendProcess::~BackendProcess() = default;

void BackendProcess::ensure_usable(std::string_view name) const {
    if (completion_unconfirmed_) {
        throw std::logic_error(
            std::string(name) +
            " - process is unusable after CUDA completion could not be confirmed");
    }
}

void BackendProcess::set_execution_plan(ExecutionPlan plan) {
    ensure_usable("BackendProcess::set_execution_plan");
    if (plan.cuda_device && *plan.cuda_device < 0) {
        throw std::invalid_argument(
            "BackendProcess::set_execution_plan - CUDA device id must be non-negative");
    }
    if (plan.backend != BackendKind::cuda &&
        (plan.cuda_device || plan.cross_device_policy != CrossDevicePolicy::Reject)) {
        throw std::invalid_argument("BackendProcess::set_execution_plan - CPU plan cannot specify "
                                    "CUDA execution options");
    }
    plan_ = std::move(plan);
}

void BackendProcess::push_front(std::unique_ptr<BackendProcessStep> step) {
    ensure_usable("BackendProcess::push_front");
    if (!step) {
        throw std::invalid_argument("BackendProcess::push_front - null step");
    }
    if (!steps_) {
        steps_ = std::make_shared<StepQueue>();
    }
    steps_->insert(steps_->begin(), std::move(step));
}

void BackendProcess::push_back(std::unique_ptr<BackendProcessStep> step) {
    ensure_usable("BackendProcess::push_back");
    if (!step) {
        throw std::invalid_argument("BackendProcess::push_back - null step");
    }
    if (!steps_) {
        steps_ = std::make_shared<StepQueue>();
    }
    steps_->push_back(std::move(step));
}

void BackendProcess::quarantine_steps_noexcept() const noexcept {
    completion_unconfirmed_ = true;
    if (steps_) {
        for (std::unique_ptr<BackendProcessStep>& step : *steps_) {
            static_cast<void>(step.release());
        }
    }
}

void BackendProcess::execute(BackendExecutionSession& session,
                             BackendExecutionBindings& bindings) const {
    prepare_run(session, bindings);
    settle(session, bindings, run_steps(session, bindings));
}

void BackendProcess::execute_deferred(BackendExecutionSession& session,
                                      BackendExecutionBindings& bindings) const {
    prepare_run(session, bindings);
    if (const std::exception_ptr failure = run_steps(session, bindings)) {
        std::rethrow_exception(failure);
    }
}

void BackendProcess::check_plan_against(const BackendExecutionSession& session) const {
    if (session.selected_gpu_runtime() == nullptr) {
        refuse_session("CUDA plan requires a session with a selected CUDA device");
    }
    const std::int32_t selected = session.selected_gpu_device_id();
    if (plan_->cuda_device && *plan_->cuda_device != selected) {
        refuse_session("selected CUDA device mismatch: process requires " +
                       std::to_string(*plan_->cuda_device) + ", session selected " +
                       std::to_string(selected));
    }
    if (plan_->cross_device_policy != session.cross_device_policy()) {
        refuse_session(std::string("cross-device policy mismatch: process requires ") +
                       cross_device_policy_name(plan_->cross_device_policy) + ", session uses " +
                       cross_device_policy_name(session.cross_device_policy()));
    }
}

void BackendProcess::prepare_run(BackendExecutionSession& session,
                                 BackendExecutionBindings& bindings) const {
    ensure_usable("BackendProcess::execute");
    if (!plan_) {
        return;
    }
    const bool on_device = plan_->backend == BackendKind::cuda;
    if (on_device) {
        check_plan_against(session);
    }
    if (!plan_->outputs.empty()) {
        bindings.outputs.clear();
        bindings.outputs.reserve(plan_->outputs.size());
        for (const PlannedOutput& output : plan_->outputs) {
            bindings.outputs.insert(output.role, output.preserves_output);
        }
    }
    if (on_device) {
        session.prepare_gpu_contexts(reachable_devices(session.selected_gpu_device_id(), bindings));
    }
}

std::exception_ptr BackendProcess::run_steps(BackendExecutionSession& session,
                                             BackendExecutionBindings& bindings) const {
    session.begin_process_gpu_submission();
    std::exception_ptr failure;
    keeping_first(failure, [&] {
        if (steps_) {
            const DefaultFloatingEnvironment environment;
            for (const std::unique_ptr<BackendProcessStep>& step : *steps_) {
                DefaultFloatingEnvironment::restore_default(); // a step may leave another
                step->execute(session, bindings);
            }
        }
    });
    session.end_process_gpu_submission();
    return failure;
}

void BackendProcess::settle(BackendExecutionSession& session, BackendExecutionBindings& bindings,
                            std::exception_ptr failure) const {
    if (!failure && bindings.adapted.empty()) {
        return;
    }
    std::exception_ptr cleanup_error;
    if (keeping_first(failure, [&] { cleanup_error = session.synchronize_process_gpu(); })) {
        keeping_first(failure, [&] { bindings.restore_adapted(); });
    } else {
        // Device work may still use the adapted operands, so the bindings stay as they are.
        quarantine_steps_noexcept();
    }
    if (failure || cleanup_error) {
        std::rethrow_exception(failure ? failure : cleanup_error);
    }
}

} // namespace Tessaline
