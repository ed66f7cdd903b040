// SPDX-License-Identifier: Apache-2.0
#include "tessaline/execution/backend_execution_session.h"

#include <stdexcept>
#include <string>
#include <utility>

namespace Tessaline {

namespace {

void validate_entry(std::int32_t device, const std::shared_ptr<GpuDeviceRuntime>& runtime) {
    const auto refuse = [](const std::string& what) {
        throw std::invalid_argument("BackendExecutionSession - CUDA runtime " + what);
    };
    const std::string key = std::to_string(device);
    if (device < 0) {
        refuse("map device id must be non-negative, got " + key);
    }
    if (!runtime) {
        refuse("context must not be null for map key " + key);
    }
    if (runtime->device_id() != device) {
        refuse("context device " + std::to_string(runtime->device_id()) +
               " does not match map key " + key);
    }
}

GpuRuntimeMap map_of(const std::shared_ptr<GpuDeviceRuntime>& runtime) {
    return runtime ? GpuRuntimeMap{{runtime->device_id(), runtime}} : GpuRuntimeMap();
}

std::optional<std::int32_t> device_of(const std::shared_ptr<GpuDeviceRuntime>& runtime) {
    return runtime ? std::optional(runtime->device_id()) : std::nullopt;
}

} // namespace

// Out of line, so that each interface has one virtual table across shared objects.
CpuExecutionContext::~CpuExecutionContext() = default;

BackendExecutionSession::BackendExecutionSession()
    : BackendExecutionSession(std::shared_ptr<CpuRuntimeContext>()) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime)
    : cpu_scalar_context_(BackendKind::cpu_scalar, cpu_runtime),
      cpu_simd_context_(BackendKind::cpu_simd, std::move(cpu_runtime)) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime,
                                                 GpuRuntimeMap runtimes,
                                                 std::optional<std::int32_t> selected_device,
                                                 std::optional<CudaStreamRef> stream,
                                                 CrossDevicePolicy cross_device_policy)
    : BackendExecutionSession(TrustedGpuRuntimeCatalogue{}, std::move(cpu_runtime),
                              make_trusted_gpu_runtime_catalogue(std::move(runtimes)),
                              selected_device, std::move(stream), cross_device_policy) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<CpuRuntimeContext> cpu_runtime,
                                                 std::shared_ptr<GpuDeviceRuntime> gpu_runtime,
                                                 std::optional<CudaStreamRef> stream,
                                                 CrossDevicePolicy cross_device_policy)
    : BackendExecutionSession(std::move(cpu_runtime), map_of(gpu_runtime), device_of(gpu_runtime),
                              std::move(stream), cross_device_policy) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<GpuDeviceRuntime> gpu_runtime,
                                                 std::optional<CudaStreamRef> stream,
                                                 CrossDevicePolicy cross_device_policy)
    : BackendExecutionSession(std::shared_ptr<CpuRuntimeContext>(), std::move(gpu_runtime),
                              std::move(stream), cross_device_policy) {}

BackendExecutionSession::BackendExecutionSession(std::shared_ptr<GpuDeviceRuntime> gpu_runtime)
    : BackendExecutionSession(std::move(gpu_runtime), std::nullopt, CrossDevicePolicy::Reject) {}

BackendExecutionSession::BackendExecutionSession(TrustedGpuRuntimeCatalogue,
                                                 std::shared_ptr<CpuRuntimeContext> cpu_runtime,
                                                 std::shared_ptr<const GpuRuntimeMap> runtimes,
                                                 std::optional<std::int32_t> selected_device,
                                                 std::optional<CudaStreamRef> stream,
                                                 CrossDevicePolicy cross_device_policy)
    : gpu_(std::move(runtimes), selected_device, std::move(stream), cross_device_policy),
      cpu_scalar_context_(BackendKind::cpu_scalar, cpu_runtime),
      cpu_simd_context_(BackendKind::cpu_simd, std::move(cpu_runtime)) {}

BackendExecutionSession::~BackendExecutionSession() = default;

std::shared_ptr<const GpuRuntimeMap>
BackendExecutionSession::make_trusted_gpu_runtime_catalogue(GpuRuntimeMap runtimes) {
    for (const auto& [device, runtime] : runtimes) {
        validate_entry(device, runtime);
    }
    return std::make_shared<const GpuRuntimeMap>(std::move(runtimes));
}

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

GpuDeviceRuntime* BackendExecutionSession::selected_gpu_runtime() const {
    return gpu_.selected_device() ? gpu_.runtime(*gpu_.selected_device()) : nullptr;
}

std::int32_t BackendExecutionSession::selected_gpu_device_id() const {
    if (!gpu_.selected_device()) {
        throw std::logic_error(
            "BackendExecutionSession::selected_gpu_device_id - CUDA device not selected");
    }
    return *gpu_.selected_device();
}

} // namespace Tessaline
