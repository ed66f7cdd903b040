// SPDX-License-Identifier: Apache-2.0
#pragma once

// The named failures of LU factors, their solve and determinants. Kept out of the kernels, so that
// a unit for one instruction set builds no string and no exception.

#include <cstdint>

namespace Tessaline::LuFailures {

/// Column `k` has no pivot but exact zeros.
[[noreturn]] void singular(std::uint64_t k);
/// Column `k` has no pivot above the engine's threshold.
[[noreturn]] void engine_singular();
[[noreturn]] void non_finite_pivot();
/// A non-zero element divided by its pivot is zero.
[[noreturn]] void multiplier_underflow();
/// A stored pivot is not the number of a row.
[[noreturn]] void invalid_pivot();
[[noreturn]] void engine_incompatible_rhs();

} // namespace Tessaline::LuFailures
