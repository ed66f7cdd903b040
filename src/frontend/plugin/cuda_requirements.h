// SPDX-License-Identifier: Apache-2.0
#pragma once

// Whether the CUDA runtime of this process serves a plugin.

#include "tessaline/plugin.h"

#include <cstdint>

namespace Tessaline::PluginDetail::Internal {

/// The answer of cudaRuntimeGetVersion; the version counts only under status 0.
struct CudaRuntimeVersion {
    std::int32_t status;
    std::int32_t version;
};

/// This build has no CUDA backend, so the query fails.
CudaRuntimeVersion query_cuda_runtime();

/// Checks the range that a plugin declared; `query` is called for a plugin with CUDA kernels only.
/// Raises std::runtime_error for a failed query, std::invalid_argument otherwise.
void check_cuda_requirements(const tessaline_plugin_metadata& metadata, bool has_cuda_kernels,
                             CudaRuntimeVersion (*query)());

} // namespace Tessaline::PluginDetail::Internal
