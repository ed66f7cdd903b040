// SPDX-License-Identifier: Apache-2.0
#pragma once

// The transposing copy of matrices, of elements that are taken as bits.

#include "backend/cpu/simd/plain/block_sizes.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline {

/// target(j, i) = source(i, j) ^ flipped, for a source of `rows` by `cols` elements. Lines of the
/// source lie `source_stride` elements apart, those of the target `target_stride`. The target must
/// not overlap the source; `past_caches` writes it by stores that do not read it first, which pays
/// for a target that the caches cannot keep.
///
/// Bits is std::uint16_t, std::uint32_t, std::uint64_t or Bits128.
template <typename Bits>
void copy_transposed(const Bits* source, std::uint64_t source_stride, Bits* target,
                     std::uint64_t target_stride, std::uint64_t rows, std::uint64_t cols,
                     Bits flipped, bool past_caches,
                     const SimdKernels::UnfusedTable& kernels = SimdKernels::unfused_table());

/// target[i] = source[i] ^ flipped for `count` elements.
template <typename Bits>
void copy_flipped(const Bits* source, Bits* target, std::uint64_t count, Bits flipped);

} // namespace Tessaline
