// SPDX-License-Identifier: Apache-2.0
#include "backend/cuda/cuda_runtime_library.h"

#include <dlfcn.h>

namespace Tessaline {

namespace {

constexpr const char* library_file = "libcudart.so.13";
/// cudaErrorSharedObjectInitFailed.
constexpr CudaStatus not_loaded = 303;

constexpr CudaRuntimeLibrary missing_library{
    .cudaGetDeviceCount = [](int*) { return not_loaded; },
    .cudaSetDevice = [](int) { return not_loaded; },
    .cudaGetLastError = [] { return not_loaded; },
    .cudaGetErrorName = [](CudaStatus) { return "cudaErrorSharedObjectInitFailed"; },
    .cudaGetErrorString = [](CudaStatus) { return "libcudart.so.13 is not available"; },
};

CudaRuntimeLibrary open_library() noexcept {
    // Stays open: the library runs code of its own when the process ends.
    void* handle = dlopen(library_file, RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        return missing_library;
    }
    CudaRuntimeLibrary library{};
    bool complete = true;
#define TESSALINE_LOAD(name, Signature)                                                            \
    library.name = reinterpret_cast<Signature>(dlsym(handle, #name));                              \
    complete = complete && library.name != nullptr;
    TESSALINE_CUDA_RUNTIME_FUNCTIONS(TESSALINE_LOAD)
#undef TESSALINE_LOAD
    return complete ? library : missing_library;
}

} // namespace

const CudaRuntimeLibrary& cuda_runtime_library() noexcept {
    static const CudaRuntimeLibrary library = open_library();
    return library;
}

} // namespace Tessaline
