// SPDX-License-Identifier: Apache-2.0
#pragma once

// The CUDA runtime library, opened at first need. The runtime links none of CUDA, so that it loads
// where there is none.

#include <cstdint>

namespace Tessaline {

/// A status of the library: 0 is success.
using CudaStatus = std::int32_t;

/// The functions that are used, each with its signature in the library's C interface, where a
/// status is an enumeration of the size of an int.
#define TESSALINE_CUDA_RUNTIME_FUNCTIONS(FUNCTION)                                                 \
    FUNCTION(cudaGetDeviceCount, CudaStatus (*)(int* count))                                       \
    FUNCTION(cudaSetDevice, CudaStatus (*)(int device))                                            \
    FUNCTION(cudaGetLastError, CudaStatus (*)())                                                   \
    FUNCTION(cudaGetErrorName, const char* (*)(CudaStatus status))                                 \
    FUNCTION(cudaGetErrorString, const char* (*)(CudaStatus status))

struct CudaRuntimeLibrary {
#define TESSALINE_FIELD(name, Signature) decltype(static_cast<Signature>(nullptr)) name;
    TESSALINE_CUDA_RUNTIME_FUNCTIONS(TESSALINE_FIELD)
#undef TESSALINE_FIELD
};

/// The library's functions. Where it is missing, or lacks one of them, all of them are stand-ins
/// that do nothing and report the library's own status for a shared object that did not load.
const CudaRuntimeLibrary& cuda_runtime_library() noexcept;

} // namespace Tessaline
