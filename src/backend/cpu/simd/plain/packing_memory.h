// SPDX-License-Identifier: Apache-2.0
#pragma once

// Memory for the part of a matrix that a product reads again and again.

#include <cstddef>

namespace Tessaline::SimdKernels {

/// Half of a second-level cache of 1 MiB; the other half is for what streams through it.
inline constexpr std::size_t packing_bytes = std::size_t{512} << 10U;

/// `packing_bytes` of memory that belong to the calling thread while it runs, aligned to cache
/// lines. Allocated at a thread's first call, which may raise std::bad_alloc.
void* packing_memory();

} // namespace Tessaline::SimdKernels
