// SPDX-License-Identifier: Apache-2.0
#pragma once

// How the general eigensolver fails.

#include <cstddef>
#include <string>

namespace Tessaline::CpuFallback {

/// A result that cannot be given truthfully.
[[noreturn]] void throw_solver_failure(const std::string& detail);

/// Too many iterations while the leading block of this order is not yet triangular.
[[noreturn]] void throw_non_convergence(std::size_t active);

} // namespace Tessaline::CpuFallback
