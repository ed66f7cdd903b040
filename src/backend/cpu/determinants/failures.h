// SPDX-License-Identifier: Apache-2.0
#pragma once

// How a determinant fails that the range cannot hold.

#include <cstdint>
#include <string>

namespace Tessaline::CpuStructured {

/// Raises SolverError with the reason solver_failure.
[[noreturn]] void fail(std::int32_t status, const char* detail, const char* operation,
                       const std::string& message);

} // namespace Tessaline::CpuStructured
