// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cuda/cuda_device.h"

#include "backend/cuda/cuda_runtime_library.h"
#include "tessaline/backend/cuda/cuda_status.h"

#include <stdexcept>
#include <string>

namespace Tessaline {

std::int32_t cuda_device_count() noexcept {
    const CudaRuntimeLibrary& library = cuda_runtime_library();
    int count = 0;
    if (library.cudaGetDeviceCount(&count) != 0) {
        library.cudaGetLastError();
        return 0;
    }
    return count;
}

void validate_cuda_device_id(std::int32_t device, std::string_view what) {
    const std::string start(what);
    if (device < 0) {
        throw std::invalid_argument(start + " - CUDA device id must be non-negative");
    }
    const CudaRuntimeLibrary& library = cuda_runtime_library();
    int count = 0;
    if (const CudaStatus status = library.cudaGetDeviceCount(&count); status != 0) {
        library.cudaGetLastError();
        throw std::runtime_error(
            start + " - cudaGetDeviceCount failed: " + library.cudaGetErrorString(status));
    }
    if (device >= count) {
        throw std::invalid_argument(start +
                                    " - CUDA device id is unavailable: " + std::to_string(device));
    }
}

void set_current_cuda_device(std::int32_t device, std::string_view operation,
                             const std::source_location& location) {
    CudaCommons::check_cuda(cuda_runtime_library().cudaSetDevice(device), operation, location);
}

} // namespace Tessaline
