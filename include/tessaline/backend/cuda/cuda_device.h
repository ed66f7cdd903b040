// SPDX-License-Identifier: Apache-2.0
#pragma once

// Which CUDA devices this process sees. A machine without the CUDA libraries has none.

#include "tessaline/export.h"

#include <cstdint>
#include <source_location>
#include <string_view>

namespace Tessaline {

/// The number of devices, 0 where they cannot be counted. Leaves no error behind in the library.
TESSALINE_API std::int32_t cuda_device_count() noexcept;

/// Raises std::invalid_argument for an id that is negative or names no device and
/// std::runtime_error where devices cannot be counted; `what` begins the message.
TESSALINE_API void validate_cuda_device_id(std::int32_t device, std::string_view what);

/// Makes a device the calling thread's current one, and leaves it so. Raises BackendLibraryError
/// that names `operation`.
TESSALINE_API void
set_current_cuda_device(std::int32_t device, std::string_view operation,
                        const std::source_location& location = std::source_location::current());

} // namespace Tessaline
