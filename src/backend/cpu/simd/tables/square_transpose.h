// SPDX-License-Identifier: Apache-2.0
#pragma once

// The transpose of a square matrix in its own place, tile by tile.

#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>
#include <cstring>

namespace Tessaline {

/// Exchanges elements (i, j) and (j, i) of a matrix of `order` rows that follow one another. T is
/// taken as bits.
template <typename T>
void transpose_in_place(T* matrix, std::uint64_t order) {
    using Bits = BitsOf<T>;
    constexpr std::uint64_t tile = turned_tile;
    Bits buffer[tile * tile];
    Bits* const elements = as_bits(matrix);
    for (std::uint64_t i = 0; i < order; i += tile) {
        const std::uint64_t rows = std::min(tile, order - i);
        for (std::uint64_t j = 0; j <= i; j += tile) {
            const std::uint64_t cols = std::min(tile, order - j);
            Bits* const lower = elements + i * order + j;
            Bits* const upper = elements + j * order + i;
            copy_transposed(lower, order, buffer, rows, rows, cols, Bits{}, false);
            if (i != j) {
                copy_transposed(upper, order, lower, order, cols, rows, Bits{}, false);
            }
            for (std::uint64_t row = 0; row < cols; ++row) {
                std::memcpy(upper + row * order, buffer + row * rows, rows * sizeof(Bits));
            }
        }
    }
}

} // namespace Tessaline
