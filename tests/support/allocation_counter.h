// SPDX-License-Identifier: Apache-2.0
#pragma once

// Counts heap allocations of the program that links allocation_counter.cpp, which replaces the
// global operator new.

#include <cstdint>

namespace Tessaline::Testing {

/// Calls of operator new by this thread so far, whatever their form.
std::uint64_t allocation_count() noexcept;

} // namespace Tessaline::Testing
