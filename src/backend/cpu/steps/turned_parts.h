// SPDX-License-Identifier: Apache-2.0
#pragma once

// The transposing copy of complex matrices between planes and interleaved elements.

#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>
#include <cstring>
#include <emmintrin.h>

namespace Tessaline {

/// The parts of complex elements: one step apart in two buffers, or two steps apart in one.
template <typename T, std::uint64_t Step>
struct ComplexParts {
    T* real;
    T* imag;
};

/// The parts of interleaved elements, of which `parts` is the first; null where there are none.
template <typename T>
ComplexParts<T, 2> interleaved_parts(T* parts) {
    return {parts, parts == nullptr ? nullptr : parts + 1};
}

/// Writes `count` elements past the caches.
template <typename T>
void stream(T* to, const T* from, std::uint64_t count) {
    constexpr std::uint64_t vector_size = sizeof(__m128i);
    auto* target = reinterpret_cast<unsigned char*>(to);
    const auto* source = reinterpret_cast<const unsigned char*>(from);
    std::uint64_t size = count * sizeof(T);
    const std::uint64_t head =
        std::min(size, (0 - reinterpret_cast<std::uintptr_t>(target)) % vector_size);
    std::memcpy(target, source, head);
    for (target += head, source += head, size -= head; size >= vector_size;
         target += vector_size, source += vector_size, size -= vector_size) {
        _mm_stream_si128(reinterpret_cast<__m128i*>(target),
                         _mm_loadu_si128(reinterpret_cast<const __m128i*>(source)));
    }
    std::memcpy(target, source, size);
}

/// A tile of elements, line by line of the target.
template <typename T>
struct TurnedTile {
    struct Element {
        T real;
        T imag;
    };

    /// Takes the elements of `height` lines of the source, `width` of each, which lie `stride`
    /// elements apart.
    template <std::uint64_t From>
    void turn(ComplexParts<const T, From> source, std::uint64_t stride, std::uint64_t height,
              std::uint64_t width) {
        for (std::uint64_t i = 0; i < height; ++i) {
            const T* real = source.real + i * stride * From;
            const T* imag = source.imag + i * stride * From;
            for (std::uint64_t j = 0; j < width; ++j) {
                lines[j][i] = {real[j * From], imag[j * From]};
            }
        }
    }

    /// Gives `width` lines of the target `height` elements each.
    template <std::uint64_t To>
    void write(ComplexParts<T, To> target, std::uint64_t stride, std::uint64_t height,
               std::uint64_t width, bool past_caches) const {
        for (std::uint64_t j = 0; j < width; ++j) {
            if constexpr (To == 2) {
                write_line(target.real + j * stride * 2, &lines[j][0].real, 2 * height,
                           past_caches);
            } else {
                T real[turned_tile];
                T imag[turned_tile];
                for (std::uint64_t i = 0; i < turned_tile; ++i) {
                    real[i] = lines[j][i].real;
                    imag[i] = lines[j][i].imag;
                }
                write_line(target.real + j * stride, real, height, past_caches);
                write_line(target.imag + j * stride, imag, height, past_caches);
            }
        }
    }

    static void write_line(T* to, const T* from, std::uint64_t count, bool past_caches) {
        if (past_caches) {
            stream(to, from, count);
        } else {
            std::copy_n(from, count, to);
        }
    }

    Element lines[turned_tile][turned_tile]{};
};

template <typename T, std::uint64_t Step>
ComplexParts<T, Step> offset(ComplexParts<T, Step> parts, std::uint64_t elements) {
    return {parts.real + elements * Step, parts.imag + elements * Step};
}

/// Element (i, j) of a matrix of `rows` by `cols`, in the source at i * cols + j, goes to
/// j * rows + i, for the rows [begin, end). Where the form changes on the way, each tile is turned
/// in a buffer, so that source and target are both walked along their lines.
template <typename T, std::uint64_t From, std::uint64_t To>
void copy_parts_transposed(ComplexParts<const T, From> source, ComplexParts<T, To> target,
                           std::uint64_t rows, std::uint64_t cols, std::uint64_t begin,
                           std::uint64_t end, bool past_caches) {
    if constexpr (From == To) {
        using Bits = BitsOfSize<To * sizeof(T)>;
        const auto copy = [=](const T* from, T* to) {
            copy_transposed(reinterpret_cast<const Bits*>(from) + begin * cols, cols,
                            reinterpret_cast<Bits*>(to) + begin, rows, end - begin, cols, Bits{},
                            past_caches);
        };
        copy(source.real, target.real);
        if (To == 1) {
            copy(source.imag, target.imag);
        }
        return;
    }
    TurnedTile<T> turned;
    for (std::uint64_t row = begin; row < end; row += turned_tile) {
        const std::uint64_t height = std::min(turned_tile, end - row);
        for (std::uint64_t col = 0; col < cols; col += turned_tile) {
            const std::uint64_t width = std::min(turned_tile, cols - col);
            turned.turn(offset(source, row * cols + col), cols, height, width);
            turned.write(offset(target, col * rows + row), rows, height, width, past_caches);
        }
    }
    if (past_caches) {
        _mm_sfence();
    }
}

} // namespace Tessaline
