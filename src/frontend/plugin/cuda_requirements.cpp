// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/cuda_requirements.h"

#include "catalogue/require.h"

#include <stdexcept>
#include <string>

namespace Tessaline::PluginDetail::Internal {

CudaRuntimeVersion query_cuda_runtime() {
    constexpr std::int32_t not_supported = 801; // cudaErrorNotSupported
    return {not_supported, 0};
}

void check_cuda_requirements(const tessaline_plugin_metadata& metadata, bool has_cuda_kernels,
                             CudaRuntimeVersion (*query)()) {
    const std::int32_t lowest = metadata.cuda_runtime_min;
    const std::int32_t highest = metadata.cuda_runtime_max; // 0 for no limit
    if (!has_cuda_kernels) {
        require(lowest == 0 && highest == 0,
                "native CPU plugin declared CUDA runtime requirements");
        return;
    }
    require(highest == 0 || highest >= lowest, "native plugin CUDA runtime range is malformed");
    const CudaRuntimeVersion runtime = query();
    if (runtime.status != 0) {
        throw std::runtime_error("native plugin CUDA runtime query failed with status " +
                                 std::to_string(runtime.status));
    }
    require(runtime.version >= lowest && (highest == 0 || runtime.version <= highest),
            "native plugin requires an incompatible CUDA runtime");
}

} // namespace Tessaline::PluginDetail::Internal
