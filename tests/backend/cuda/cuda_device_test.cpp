// SPDX-License-Identifier: Apache-2.0

// Runs on a stand-in for the CUDA runtime library, which the build puts on the library path.

#include "tessaline/backend/cuda/cuda_device.h"

#include "support/expect_error.h"
#include "tessaline/backend/cuda/cuda_status.h"
#include "tessaline/catalogue/errors.h"

#include <cstdlib>
#include <dlfcn.h>
#include <gmock/gmock.h>

namespace Tessaline {

namespace {

using Testing::expect_error;
using ::testing::MatchesRegex;

void set_devices(const char* count) {
    ASSERT_EQ(count == nullptr ? unsetenv("CUDA_DOUBLE_DEVICES")
                               : setenv("CUDA_DOUBLE_DEVICES", count, 1),
              0);
}

/// The error that the library itself still holds for this thread.
int pending_error() {
    void* library = dlopen("libcudart.so.13", RTLD_NOW | RTLD_NOLOAD);
    auto* get = reinterpret_cast<int (*)()>(dlsym(library, "cudaGetLastError"));
    return get();
}

TEST(CudaDevice, CountsAndValidatesDevices) {
    set_devices("2");
    EXPECT_EQ(cuda_device_count(), 2);
    validate_cuda_device_id(1, "pool");
    expect_error<std::invalid_argument>([] { validate_cuda_device_id(2, "pool"); },
                                        "pool - CUDA device id is unavailable: 2");
    expect_error<std::invalid_argument>([] { validate_cuda_device_id(-1, "pool"); },
                                        "pool - CUDA device id must be non-negative");
}

TEST(CudaDevice, WithoutADriverThereIsNoneAndNoErrorStaysBehind) {
    set_devices(nullptr);
    EXPECT_EQ(cuda_device_count(), 0);
    EXPECT_EQ(pending_error(), 0);
    expect_error<std::runtime_error>([] { validate_cuda_device_id(0, "pool"); },
                                     "pool - cudaGetDeviceCount failed: insufficient driver");
    EXPECT_EQ(pending_error(), 0);
}

TEST(CudaDevice, AFailedCallNamesLibraryStatusAndPlace) {
    set_devices("1");
    set_current_cuda_device(0, "activate");
    try {
        set_current_cuda_device(7, "activate");
        FAIL() << "no error";
    } catch (const BackendLibraryError& error) {
        EXPECT_EQ(error.library(), "CUDA runtime");
        EXPECT_EQ(error.status(), 101);
        EXPECT_EQ(error.status_name(), "cudaErrorInvalidDevice");
        EXPECT_EQ(error.operation(), "activate");
        EXPECT_THAT(error.what(),
                    MatchesRegex("activate failed: invalid device ordinal \\(status=101\\) at "
                                 ".*cuda_device_test.cpp:[0-9]+"));
    }
    try {
        CudaCommons::check_cuda(12345, "call");
        FAIL() << "no error";
    } catch (const BackendLibraryError& error) {
        EXPECT_EQ(error.status_name(), "UNKNOWN_CUDA_ERROR");
    }
}

} // namespace

} // namespace Tessaline
