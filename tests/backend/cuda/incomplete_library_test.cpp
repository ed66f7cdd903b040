// SPDX-License-Identifier: Apache-2.0

// Runs on a CUDA runtime library that lacks one of the functions that are used.

#include "support/expect_error.h"
#include "tessaline/backend/cuda/cuda_device.h"
#include "tessaline/catalogue/errors.h"

namespace Tessaline {

namespace {

using Testing::expect_error;

TEST(IncompleteCudaLibrary, CountsAsNone) {
    EXPECT_EQ(cuda_device_count(), 0);
    expect_error<std::runtime_error>(
        [] { validate_cuda_device_id(0, "pool"); },
        "pool - cudaGetDeviceCount failed: libcudart.so.13 is not available");
    EXPECT_THROW(set_current_cuda_device(0, "activate"), BackendLibraryError);
}

} // namespace

} // namespace Tessaline
