// SPDX-License-Identifier: Apache-2.0
#include "frontend/execution_state.h"

#include "execution/first_failure.h"

namespace Tessaline {

void BackendExecutor::Execution::State::record_completion(CudaStreamRef stream) noexcept {
    const bool recorded = keeping_first(error, [&] {
        completions.push_back(
            {stream.device_id(), device(stream.device_id()).record_event(stream.get())});
    });
    if (!recorded) {
        unrecorded_streams.push_back(std::move(stream));
    }
}

void BackendExecutor::Execution::State::finish_without_completion() noexcept {
    restore_bindings();
    release();
}

void BackendExecutor::Execution::State::wait() {
    if (!finished) {
        std::exception_ptr first = error;
        if (confirm_completion(first)) {
            destroy_events(first);
            keeping_first(first, [this] { restore_bindings(); });
            release();
        } else if (borrowed_process != nullptr) {
            mark_process_completion_unconfirmed(*borrowed_process);
            borrowed_process = nullptr;
        }
        error = first;
    }
    if (error) {
        std::rethrow_exception(error);
    }
}

bool BackendExecutor::Execution::State::completed() const {
    if (finished) {
        return true;
    }
    if (!unrecorded_streams.empty()) {
        return false;
    }
    bool reached = true;
    for (const Completion& completion : completions) {
        // Each is asked, since each may have a failure to tell.
        reached = device(completion.device_id).is_reached(completion.event) && reached;
    }
    return reached;
}

/// Waits for all device work, also where one wait has failed.
bool BackendExecutor::Execution::State::confirm_completion(std::exception_ptr& first) {
    std::erase_if(unrecorded_streams, [&](const CudaStreamRef& stream) {
        return keeping_first(first,
                             [&] { device(stream.device_id()).synchronise_stream(stream.get()); });
    });
    bool confirmed = unrecorded_streams.empty();
    for (const Completion& completion : completions) {
        const bool reached = keeping_first(
            first, [&] { device(completion.device_id).synchronise_event(completion.event); });
        confirmed = reached && confirmed;
    }
    return confirmed;
}

void BackendExecutor::Execution::State::destroy_events(std::exception_ptr& first) {
    for (const Completion& completion : completions) {
        keeping_first(first, [&] { device(completion.device_id).destroy_event(completion.event); });
    }
    completions.clear();
}

void BackendExecutor::Execution::State::restore_bindings() {
    if (bindings != nullptr && !bindings->adapted.empty()) {
        bindings->restore_adapted();
    }
}

void BackendExecutor::Execution::State::release() noexcept {
    bindings = nullptr;
    owned_bindings.reset();
    owned_process.reset();
    retained_steps.reset();
    borrowed_process = nullptr;
    cuda_stream.reset();
    finished = true;
}

} // namespace Tessaline
