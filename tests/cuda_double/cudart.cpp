// SPDX-License-Identifier: Apache-2.0

// A stand-in for the CUDA runtime library, found by its name on the library path. It has as many
// devices as CUDA_DOUBLE_DEVICES says; without that it has no driver.

#include <cstdlib>

namespace {

constexpr int invalid_device = 101;
constexpr int insufficient_driver = 35;

/// What the calling thread's last failing call returned, until it is asked for.
thread_local int last_error = 0;

int report(int status) {
    if (status != 0) {
        last_error = status;
    }
    return status;
}

} // namespace

extern "C" {

int cudaGetDeviceCount(int* count) {
    const char* devices = std::getenv("CUDA_DOUBLE_DEVICES");
    *count = devices == nullptr ? 0 : std::atoi(devices);
    return report(devices == nullptr ? insufficient_driver : 0);
}

int cudaSetDevice(int device) {
    int count = 0;
    const int status = cudaGetDeviceCount(&count);
    return report(status == 0 && (device < 0 || device >= count) ? invalid_device : status);
}

#ifndef CUDA_DOUBLE_INCOMPLETE
int cudaGetLastError() {
    const int status = last_error;
    last_error = 0;
    return status;
}
#endif

const char* cudaGetErrorName(int status) {
    return status == invalid_device ? "cudaErrorInvalidDevice" : nullptr;
}

const char* cudaGetErrorString(int status) {
    return status == invalid_device ? "invalid device ordinal" : "insufficient driver";
}

} // extern "C"
