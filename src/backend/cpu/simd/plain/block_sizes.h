// SPDX-License-Identifier: Apache-2.0
#pragma once

// How large the pieces are into which loops are cut: sizes, the memory that they fit, and what was
// measured. Tiles of registers belong to the instruction sets (simd/sets). No size changes a bit.
//
// Constants alone, since units for every instruction set include this.

#include <cstddef>
#include <cstdint>

namespace Tessaline {

// --- Products ---

/// Inner indices of one block of a product by vectors of `lanes` elements. The rows of A that a
/// tile needs of it, at most 12 KiB, stay in the first cache. Longer blocks load and store C less
/// often; measured at order 1024, 16 floats gain 2 % from 384 instead of 256, other vectors lose as
/// much.
constexpr std::uint64_t inner_block(std::uint64_t lanes) {
    return lanes == 16 ? 384 : 256;
}

/// The packed part of B: half of a second cache of 1 MiB; the other half is for what streams
/// through it.
inline constexpr std::size_t packing_bytes = std::size_t{512} << 10U;

/// What is read of B again and again stays in the first cache if it has this many bytes.
inline constexpr std::uint64_t first_cache_bytes = std::uint64_t{32} << 10U;

/// Tiles that pass down a panel of the first cache before the next panel's turn, while the rows of
/// A come from the second cache: at order 1024 that is 2 to 7 % faster, and less disturbed.
inline constexpr std::uint64_t tiles_down_a_panel = 16;

/// From this many bytes of A on, the rows of a product with a vector come from memory and are asked
/// for ahead: 25 % more speed there, where it would cost 10 % in caches.
inline constexpr std::uint64_t prefetched_row_bytes = std::uint64_t{16} << 20U;

/// From this many bytes of such a row on, its vectors are made to lie within cache lines. Rows of
/// floats that lie 4096 bytes apart meet in one set of the first cache, where a line that two
/// vectors share is gone before the second one: 1.8 times as fast there. In shorter rows the masked
/// vector in front takes as long as it saves.
inline constexpr std::uint64_t aligned_row_bytes = 2048;

/// Rows of C that are under way at once where A or C is not in the form that a kernel takes: few,
/// so that their copies stay in the caches, but enough to pay for the packing of B.
inline constexpr std::uint64_t widened_product_rows = 256;

/// Rows of A that are widened at once for a product with a vector: as many as a tile of 512-bit
/// vectors has.
inline constexpr std::uint64_t widened_tile_rows = 16;

/// Sums of a product with a vector, or of a partial trace, that are in compute type at once: 8 KiB
/// at most, which the first cache holds with ease.
inline constexpr std::uint64_t sums_at_once = 512;
inline constexpr std::uint64_t traces_at_once = 256;

// --- Copies ---

/// Elements of a chunk that are in compute type at once, up to 12 KiB of the first cache for three
/// operands.
inline constexpr std::uint64_t conversion_piece = 512;

/// Columns that are read at once where a column-major matrix is widened by rows, so that the lines
/// that are read and written stay in the first cache.
inline constexpr std::uint64_t widened_columns = 8;

/// The side of a square tile that is turned in a buffer: 16 KiB of complex128 elements, half of the
/// first cache.
inline constexpr std::uint64_t turned_tile = 32;

/// A tile of the transposing copy of elements of some bytes, rows and the bytes of each. Measured
/// from 64 to 1024 bytes and from 16 to 64 rows: larger tiles crowd the first cache, smaller ones
/// take memory in shorter runs.
constexpr std::uint64_t transposed_rows(std::size_t element_bytes) {
    return element_bytes == 2 ? 32 : 16;
}
constexpr std::uint64_t transposed_row_bytes(std::size_t element_bytes) {
    return element_bytes == 2 ? 128 : 256;
}

/// A tile of the transposing copy comes from more lines of memory than the processor follows by
/// itself. Rows are asked for this far ahead of the one that is turned, one by one: many requests
/// at once would hold up what comes behind them.
inline constexpr std::uint64_t transposed_rows_ahead = 32;

/// From this size of a matrix in bytes on, a copy of it writes past the caches.
inline constexpr std::uint64_t least_bytes_past_caches = std::uint64_t{4} << 20U;

// --- Solvers ---

/// Columns of an elimination's panel at most, and rows of a triangle that a kernel solves with: one
/// vector of 8 doubles.
inline constexpr std::uint64_t elimination_block = 8;

/// Matrices of fewer rows are not worth blocks: they would be one panel.
inline constexpr std::uint64_t smallest_blocked_order = elimination_block;

/// Products of a block of backward substitution that lie on the stack, 16 KiB at most with those of
/// the next block; more lie in the thread's packing memory.
inline constexpr std::uint64_t stacked_products = 512;

/// Rows are rotated in blocks of this many, searches for rotations run side by side in as many
/// lanes, and columns come in multiples of it: one vector of 8 doubles.
inline constexpr std::uint64_t rotation_block = 8;

/// Columns of a set that is made orthonormal come in multiples of this, and projections take some
/// groups at a time, which stay in the first cache.
inline constexpr std::uint64_t column_group = 8;
inline constexpr std::uint64_t projected_columns = 4 * column_group;

} // namespace Tessaline
