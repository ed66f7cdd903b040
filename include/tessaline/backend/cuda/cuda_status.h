// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rule that turns a status of the CUDA runtime library into an exception.

#include "tessaline/export.h"

#include <cstdint>
#include <source_location>
#include <string_view>

namespace Tessaline::CudaCommons {

/// Returns at once for success (0). Otherwise raises BackendLibraryError of "CUDA runtime" with the
/// status, the library's name of it, and a message of the operation, the library's text, the number
/// and the place.
TESSALINE_API void
check_cuda(std::int32_t status, std::string_view operation,
           const std::source_location& location = std::source_location::current());

} // namespace Tessaline::CudaCommons
