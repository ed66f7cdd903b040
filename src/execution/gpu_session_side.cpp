// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/gpu_session_side.h"

#include "execution/first_failure.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Tessaline {

namespace {

[[noreturn]] void refuse(const std::string& what) {
    throw std::invalid_argument("BackendExecutionSession - " + what);
}

} // namespace

GpuSessionSide::GpuSessionSide(std::shared_ptr<const GpuRuntimeMap> runtimes,
                               std::optional<std::int32_t> selected_device,
                               std::optional<CudaStreamRef> stream,
                               CrossDevicePolicy cross_device_policy)
    : runtimes_(std::move(runtimes)),
      selected_device_(selected_device),
      cross_device_policy_(cross_device_policy),
      borrowed_stream_(std::move(stream)) {
    if (!runtimes_) {
        refuse("trusted CUDA runtime catalogue must not be null");
    }
    if (selected_device_ && *selected_device_ < 0) {
        refuse("selected CUDA device id must be non-negative");
    }
    if (selected_device_ && runtime(*selected_device_) == nullptr) {
        refuse("CUDA runtime context unavailable for selected device " +
               std::to_string(*selected_device_));
    }
    if (borrowed_stream_ && !selected_device_) {
        refuse("borrowed CUDA stream requires a selected CUDA device");
    }
    if (borrowed_stream_ && borrowed_stream_->device_id() != *selected_device_) {
        refuse("borrowed CUDA stream device does not match selected CUDA device");
    }
}

GpuSessionSide::~GpuSessionSide() = default;

const GpuRuntimeMap& GpuSessionSide::runtimes() const {
    static const GpuRuntimeMap none;
    return runtimes_ ? *runtimes_ : none;
}

GpuDeviceRuntime* GpuSessionSide::runtime(std::int32_t device) const {
    if (!runtimes_) {
        return nullptr;
    }
    const auto found = runtimes_->find(device);
    return found == runtimes_->end() ? nullptr : found->second.get();
}

GpuExecutionContext* GpuSessionSide::find_context(std::int32_t device) const {
    const auto found = std::ranges::find(contexts_, device, &GpuExecutionContext::device_id);
    return found == contexts_.end() ? nullptr : found->get();
}

GpuExecutionContext& GpuSessionSide::context(std::int32_t device) {
    if (runtime(device) == nullptr) {
        throw std::logic_error("BackendExecutionSession::gpu - CUDA runtime context unavailable "
                               "for device " +
                               std::to_string(device));
    }
    GpuExecutionContext* context = find_context(device);
    if (context == nullptr) {
        context = contexts_.emplace_back(make_context(device)).get();
        if (!borrowed_stream_ || device != selected_device_) {
            highest_acquired_device_ = std::max(device, highest_acquired_device_.value_or(device));
        }
    }
    record_submission(*context);
    return *context;
}

std::unique_ptr<GpuExecutionContext> GpuSessionSide::make_context(std::int32_t device) {
    const std::shared_ptr<GpuDeviceRuntime>& runtime = runtimes_->at(device);
    if (borrowed_stream_ && device == selected_device_) {
        return std::make_unique<GpuExecutionContext>(
            runtime, *borrowed_stream_, GpuExecutionContext::NullStream::is_default_stream);
    }
    return std::make_unique<GpuExecutionContext>(runtime, acquire_pool_stream(*runtime),
                                                 GpuExecutionContext::NullStream::refused);
}

/// Sessions on several threads compete for the streams of each device. One may wait for a stream
/// only while it holds none of a higher device and none that somebody took out of a pool for it, so
/// that no circle of sessions can wait for each other.
CudaStreamRef GpuSessionSide::acquire_pool_stream(GpuDeviceRuntime& runtime) const {
    const bool may_wait =
        (!highest_acquired_device_ || *highest_acquired_device_ <= runtime.device_id()) &&
        !(borrowed_stream_ && borrowed_stream_->is_pool_managed());
    if (may_wait) {
        return runtime.acquire_stream();
    }
    if (std::optional<CudaStreamRef> stream = runtime.try_acquire_stream()) {
        return *std::move(stream);
    }
    throw std::runtime_error("BackendExecutionSession::gpu - CUDA stream unavailable for "
                             "non-blocking device acquisition");
}

void GpuSessionSide::prepare_contexts(std::span<const std::int32_t> devices) {
    const auto is_ready = [this](std::int32_t device) { return find_context(device) != nullptr; };
    if (std::ranges::all_of(devices, is_ready)) {
        return;
    }
    std::vector<std::int32_t> ordered(devices.begin(), devices.end());
    std::ranges::sort(ordered);
    ordered.erase(std::unique(ordered.begin(), ordered.end()), ordered.end());
    for (const std::int32_t device : ordered) {
        if (device < 0) {
            throw std::invalid_argument("BackendExecutionSession::prepare_gpu_contexts - CUDA "
                                        "device id must be non-negative");
        }
        if (runtime(device) == nullptr) {
            throw std::logic_error("BackendExecutionSession::prepare_gpu_contexts - CUDA runtime "
                                   "context unavailable for device " +
                                   std::to_string(device));
        }
    }
    for (const std::int32_t device : ordered) {
        context(device);
    }
}

void GpuSessionSide::synchronise_contexts() {
    std::exception_ptr first;
    for (const auto& context : contexts_) {
        keeping_first(first, [&] { context->runtime()->synchronise_stream(context->stream()); });
    }
    if (first) {
        std::rethrow_exception(first);
    }
}

void GpuSessionSide::begin_submissions() {
    if (submitting_) {
        throw std::logic_error("BackendExecutionSession - nested process execution is unsupported");
    }
    submissions_.clear();
    pending_.clear();
    submissions_.reserve(runtimes().size());
    pending_.reserve(runtimes().size());
    submitting_ = true;
}

void GpuSessionSide::record_submission(const GpuExecutionContext& context) {
    const GpuSubmission submission{context.device_id(), context.stream()};
    if (submitting_ && std::ranges::find(submissions_, submission) == submissions_.end()) {
        submissions_.push_back(submission);
    }
}

CudaStreamRef GpuSessionSide::submission_stream(const GpuSubmission& submission) const {
    const GpuExecutionContext* context = find_context(submission.device_id);
    if (context == nullptr) {
        throw std::out_of_range("BackendExecutionSession::process_gpu_submission_stream - no "
                                "context of device " +
                                std::to_string(submission.device_id));
    }
    return context->stream_ref();
}

bool GpuSessionSide::record_pending_events(std::exception_ptr& first) {
    bool confirmed = true;
    for (const GpuSubmission& submission : submissions_) {
        GpuDeviceRuntime& device = *runtime(submission.device_id);
        const bool recorded = keeping_first(first, [&] {
            pending_.push_back({submission.device_id, device.record_event(submission.stream)});
        });
        // Without an event the stream itself is waited for. Its failure stands behind that of the
        // event, which is kept by now.
        confirmed = (recorded ||
                     keeping_first(first, [&] { device.synchronise_stream(submission.stream); })) &&
                    confirmed;
    }
    return confirmed;
}

bool GpuSessionSide::finish_pending_events(std::exception_ptr& first) {
    bool confirmed = true;
    for (const PendingEvent& pending : pending_) {
        confirmed =
            keeping_first(first,
                          [&] { runtime(pending.device_id)->synchronise_event(pending.event); }) &&
            confirmed;
    }
    for (const PendingEvent& pending : pending_) {
        keeping_first(first, [&] { runtime(pending.device_id)->destroy_event(pending.event); });
    }
    pending_.clear();
    return confirmed;
}

std::exception_ptr GpuSessionSide::synchronise_submissions() {
    std::exception_ptr first;
    const bool streams_ended = record_pending_events(first);
    const bool events_ended = finish_pending_events(first);
    if (!streams_ended || !events_ended) {
        std::rethrow_exception(first);
    }
    return first;
}

} // namespace Tessaline
