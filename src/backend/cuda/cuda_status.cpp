// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cuda/cuda_status.h"

#include "backend/cuda/cuda_runtime_library.h"
#include "tessaline/catalogue/errors.h"

#include <string>

namespace Tessaline::CudaCommons {

void check_cuda(std::int32_t status, std::string_view operation,
                const std::source_location& location) {
    if (status == 0) {
        return;
    }
    const CudaRuntimeLibrary& library = cuda_runtime_library();
    const char* name = library.cudaGetErrorName(status);
    std::string message(operation);
    message.append(" failed: ").append(library.cudaGetErrorString(status));
    message.append(" (status=").append(std::to_string(status)).append(") at ");
    message.append(location.file_name()).append(":").append(std::to_string(location.line()));
    throw BackendLibraryError("CUDA runtime", status, name == nullptr ? "UNKNOWN_CUDA_ERROR" : name,
                              std::string(operation), message, location);
}

} // namespace Tessaline::CudaCommons
