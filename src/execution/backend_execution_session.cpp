// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/backend_execution_session.h"

#include <algorithm>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace Tessaline {

// Out of line, so that each interface has one virtual table across shared objects.
CpuExecutionContext::~CpuExecutionContext() = default;
GpuSessionSide::~GpuSessionSide() = default;

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> runtime)
    : BackendExecutionSession(std::move(runtime), nullptr) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> runtime,
                                                 std::unique_ptr<GpuSessionSide> gpu)
    : gpu_(std::move(gpu)),
      cpu_scalar_context_(BackendKind::cpu_scalar, runtime),
      cpu_simd_context_(BackendKind::cpu_simd, std::move(runtime)) {}

BackendExecutionSession::~BackendExecutionSession() = default;

CpuExecutionContext& BackendExecutionSession::cpu(BackendKind kind) {
    switch (kind) {
    case BackendKind::cpu_scalar:
        return cpu_scalar_context_;
    case BackendKind::cpu_simd:
        return cpu_simd_context_;
    case BackendKind::cuda:
        break;
    }
    throw std::logic_error("BackendExecutionSession::cpu - non-CPU backend requested");
}

BackendRuntimeContext* BackendExecutionSession::selected_gpu_runtime() const {
    if (!gpu_ || !gpu_->selected_device()) {
        return nullptr;
    }
    return gpu_->runtime(*gpu_->selected_device());
}

std::int32_t BackendExecutionSession::selected_gpu_device_id() const {
    if (!gpu_ || !gpu_->selected_device()) {
        throw std::logic_error(
            "BackendExecutionSession::selected_gpu_device_id - CUDA device not selected");
    }
    return *gpu_->selected_device();
}

CrossDevicePolicy BackendExecutionSession::cross_device_policy() const {
    return gpu_ ? gpu_->cross_device_policy() : CrossDevicePolicy::Reject;
}

void BackendExecutionSession::prepare_gpu_contexts(std::span<const std::int32_t> devices) {
    if (devices.empty()) {
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
        if (!gpu_ || gpu_->runtime(device) == nullptr) {
            throw std::logic_error("BackendExecutionSession::prepare_gpu_contexts - CUDA runtime "
                                   "context unavailable for device " +
                                   std::to_string(device));
        }
    }
    gpu_->acquire_contexts(ordered);
}

void BackendExecutionSession::begin_process_gpu_submission() {
    if (process_submission_active_) {
        throw std::logic_error("BackendExecutionSession - nested process execution is unsupported");
    }
    if (gpu_) {
        gpu_->begin_submission();
    }
    process_submission_active_ = true;
}

void BackendExecutionSession::end_process_gpu_submission() noexcept {
    process_submission_active_ = false;
    if (gpu_) {
        gpu_->end_submission();
    }
}

std::exception_ptr BackendExecutionSession::synchronize_process_gpu() {
    return gpu_ ? gpu_->synchronise_submission() : nullptr;
}

} // namespace Tessaline
