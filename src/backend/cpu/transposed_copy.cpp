// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/transposed_copy.h"

#include <algorithm>
#include <cstring>
#include <emmintrin.h>

namespace Tessaline {

namespace {

constexpr std::uint64_t cache_line = 64;

/// One element, whose memory holds an object of some other type of its size.
template <typename Bits>
void copy_element(const Bits* from, Bits* to, Bits flipped) {
    Bits element;
    std::memcpy(&element, from, sizeof element);
    element = static_cast<Bits>(element ^ flipped);
    std::memcpy(to, &element, sizeof element);
}

/// The block that turns in registers of 16 bytes: 8 by 8, 4 by 4 or 2 by 2 elements, and a single
/// one that fills a register. Its columns go to position i of `lines`.
template <typename Bits>
struct RegisterBlock {
    static constexpr std::uint64_t side = 1;
    static void turn(const Bits* from, std::uint64_t, Bits* const* lines, std::uint64_t i,
                     Bits flipped) {
        copy_element(from, lines[0] + i, flipped);
    }
};

template <>
struct RegisterBlock<std::uint16_t> {
    static constexpr std::uint64_t side = 8;
    static void turn(const std::uint16_t* from, std::uint64_t stride, std::uint16_t* const* lines,
                     std::uint64_t i, std::uint16_t flipped) {
        // Three times each row of the upper half meets its fellow of the lower one.
        __m128i rows[side];
        for (std::uint64_t row = 0; row < side; ++row) {
            rows[row] = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + row * stride));
        }
        for (int round = 0; round < 3; ++round) {
            __m128i merged[side];
            for (std::uint64_t row = 0; row < side / 2; ++row) {
                merged[2 * row] = _mm_unpacklo_epi16(rows[row], rows[row + side / 2]);
                merged[2 * row + 1] = _mm_unpackhi_epi16(rows[row], rows[row + side / 2]);
            }
            std::copy_n(merged, side, rows);
        }
        const __m128i mask = _mm_set1_epi16(static_cast<short>(flipped));
        for (std::uint64_t j = 0; j < side; ++j) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(lines[j] + i),
                             _mm_xor_si128(rows[j], mask));
        }
    }
};

template <>
struct RegisterBlock<std::uint32_t> {
    static constexpr std::uint64_t side = 4;
    static void turn(const std::uint32_t* from, std::uint64_t stride, std::uint32_t* const* lines,
                     std::uint64_t i, std::uint32_t flipped) {
        __m128 rows[side];
        for (std::uint64_t row = 0; row < side; ++row) {
            rows[row] = _mm_loadu_ps(reinterpret_cast<const float*>(from + row * stride));
        }
        _MM_TRANSPOSE4_PS(rows[0], rows[1], rows[2], rows[3]);
        const __m128 mask = _mm_castsi128_ps(_mm_set1_epi32(static_cast<int>(flipped)));
        for (std::uint64_t j = 0; j < side; ++j) {
            _mm_storeu_ps(reinterpret_cast<float*>(lines[j] + i), _mm_xor_ps(rows[j], mask));
        }
    }
};

template <>
struct RegisterBlock<std::uint64_t> {
    static constexpr std::uint64_t side = 2;
    static void turn(const std::uint64_t* from, std::uint64_t stride, std::uint64_t* const* lines,
                     std::uint64_t i, std::uint64_t flipped) {
        const auto load = [](const std::uint64_t* line) {
            return _mm_loadu_si128(reinterpret_cast<const __m128i*>(line));
        };
        const __m128i upper = load(from);
        const __m128i lower = load(from + stride);
        const __m128i mask = _mm_set1_epi64x(static_cast<long long>(flipped));
        const auto store = [mask](std::uint64_t* line, __m128i pair) {
            _mm_storeu_si128(reinterpret_cast<__m128i*>(line), _mm_xor_si128(pair, mask));
        };
        store(lines[0] + i, _mm_unpacklo_epi64(upper, lower));
        store(lines[1] + i, _mm_unpackhi_epi64(upper, lower));
    }
};

/// Goes through the target in bands of `width` lines, tile by tile along the lines. Where that pays
/// a tile is turned in a buffer; of each line only whole cache lines are then written, and the rest
/// waits in the buffer for the next tile, so that a store past the caches never writes a part of a
/// line.
template <typename Bits>
class TransposedCopy {
  public:
    TransposedCopy(const Bits* source, std::uint64_t source_stride, Bits* target,
                   std::uint64_t target_stride, std::uint64_t rows, Bits flipped)
        : source_(source),
          source_stride_(source_stride),
          target_(target),
          target_stride_(target_stride),
          rows_(rows),
          flipped_(flipped) {}

    void copy(std::uint64_t cols, bool past_caches) {
        past_caches_ = past_caches;
        const bool buffered = past_caches || has_crowded_lines();
        for (std::uint64_t column = 0; column < cols; column += width) {
            const std::uint64_t lines = std::min(width, cols - column);
            if (buffered) {
                write_band_by_cache_lines(column, lines);
            } else {
                write_band(column, lines);
            }
        }
        if (past_caches) {
            _mm_sfence();
        }
    }

  private:
    static constexpr std::uint64_t height = 32; ///< rows of the source in a tile
    static constexpr std::uint64_t width = sizeof(Bits) == 16 ? 16 : 32;
    static constexpr std::uint64_t slots = cache_line / sizeof(Bits); ///< elements of a cache line
    static constexpr std::uint64_t side = RegisterBlock<Bits>::side;

    void write_band(std::uint64_t column, std::uint64_t lines) {
        Bits* starts[width];
        for (std::uint64_t row = 0; row < rows_; row += height) {
            for (std::uint64_t line = 0; line < lines; ++line) {
                starts[line] = target_line(column + line) + row;
            }
            turn(row, std::min(height, rows_ - row), column, lines, starts);
        }
    }

    void write_band_by_cache_lines(std::uint64_t column, std::uint64_t lines) {
        Bits* starts[width];
        for (std::uint64_t line = 0; line < lines; ++line) {
            const auto address = reinterpret_cast<std::uintptr_t>(target_line(column + line));
            skews_[line] = address % cache_line / sizeof(Bits);
            starts[line] = turned_[line] + skews_[line];
        }
        std::uint64_t row = 0;
        for (; row + height <= rows_; row += height) {
            prefetch(row + height, column, lines);
            turn(row, height, column, lines, starts);
            for (std::uint64_t line = 0; line < lines; ++line) {
                write_whole_cache_lines(turned_[line], skews_[line], row,
                                        target_line(column + line) + row - skews_[line]);
            }
        }
        turn(row, rows_ - row, column, lines, starts);
        for (std::uint64_t line = 0; line < lines; ++line) {
            // What waits, and the rest of the line; there is nothing before the line's start.
            const std::uint64_t waiting = row == 0 ? 0 : skews_[line];
            std::memcpy(target_line(column + line) + row - waiting,
                        turned_[line] + skews_[line] - waiting,
                        (waiting + rows_ - row) * sizeof(Bits));
        }
    }

    /// The next tile comes from as many lines of memory as it has rows, more than the processor
    /// follows by itself. Inlined, since g++ 12 takes a function that only prefetches for one
    /// without effects and drops its calls.
    [[gnu::always_inline]] void prefetch(std::uint64_t row, std::uint64_t column,
                                         std::uint64_t lines) const {
        for (std::uint64_t end = std::min(row + height, rows_); row < end; ++row) {
            const Bits* const first = source_ + row * source_stride_ + column;
            const auto* const bytes = reinterpret_cast<const char*>(first);
            const auto* const last = reinterpret_cast<const char*>(first + lines) - 1;
            for (const char* byte = bytes; byte < last; byte += cache_line) {
                _mm_prefetch(byte, _MM_HINT_T1);
            }
            _mm_prefetch(last, _MM_HINT_T1);
        }
    }

    /// Turns a tile of the source, a line of it to each of `starts`. The order is that of the
    /// source: rows whose distance is a power of two share few places of a cache.
    void turn(std::uint64_t row, std::uint64_t count, std::uint64_t column, std::uint64_t lines,
              Bits* const* starts) const {
        const Bits* const from = source_ + row * source_stride_ + column;
        if (count == height && lines == width) {
            for (std::uint64_t i = 0; i < height; i += side) {
                for (std::uint64_t j = 0; j < width; j += side) {
                    RegisterBlock<Bits>::turn(from + i * source_stride_ + j, source_stride_,
                                              starts + j, i, flipped_);
                }
            }
            return;
        }
        for (std::uint64_t i = 0; i < count; ++i) {
            for (std::uint64_t j = 0; j < lines; ++j) {
                copy_element(from + i * source_stride_ + j, starts[j] + i, flipped_);
            }
        }
    }

    /// Writes what a line of the buffer holds up to its last whole cache line, and moves the rest
    /// to the front.
    void write_whole_cache_lines(Bits* line, std::uint64_t skew, std::uint64_t row,
                                 Bits* target) const {
        std::uint64_t slot = 0;
        if (row == 0 && skew != 0) {
            std::memcpy(target + skew, line + skew, (slots - skew) * sizeof(Bits));
            slot = slots;
        }
        for (; slot < height; slot += slots) {
            const auto* const from = reinterpret_cast<const __m128i*>(line + slot);
            auto* const to = reinterpret_cast<__m128i*>(target + slot);
            for (std::uint64_t part = 0; part < cache_line / sizeof(__m128i); ++part) {
                if (past_caches_) {
                    _mm_stream_si128(to + part, _mm_load_si128(from + part));
                } else {
                    _mm_store_si128(to + part, _mm_load_si128(from + part));
                }
            }
        }
        std::copy_n(line + height, skew, line);
    }

    /// Whether the lines of a band of the target meet in so few sets of the first cache, 4 KiB of
    /// which lie apart, that writing to all of them at once drives each other's out.
    bool has_crowded_lines() const {
        const bool lined_up = reinterpret_cast<std::uintptr_t>(target_) % sizeof(Bits) == 0;
        return lined_up && target_stride_ * sizeof(Bits) % 1024 == 0;
    }

    Bits* target_line(std::uint64_t line) const { return target_ + line * target_stride_; }

    const Bits* source_;
    std::uint64_t source_stride_;
    Bits* target_;
    std::uint64_t target_stride_;
    std::uint64_t rows_;
    Bits flipped_;
    bool past_caches_ = false;
    std::uint64_t skews_[width]{}; ///< elements between the start of a cache line and of the line
    alignas(cache_line) Bits turned_[width][height + slots];
};

} // namespace

template <typename Bits>
void copy_transposed(const Bits* source, std::uint64_t source_stride, Bits* target,
                     std::uint64_t target_stride, std::uint64_t rows, std::uint64_t cols,
                     Bits flipped, bool past_caches) {
    if (rows == 0) {
        return;
    }
    // Elements that lie across cache lines are written through the caches.
    const bool lined_up = reinterpret_cast<std::uintptr_t>(target) % sizeof(Bits) == 0;
    TransposedCopy<Bits>(source, source_stride, target, target_stride, rows, flipped)
        .copy(cols, past_caches && lined_up);
}

template <typename Bits>
void copy_flipped(const Bits* source, Bits* target, std::uint64_t count, Bits flipped) {
    for (std::uint64_t i = 0; i < count; ++i) {
        copy_element(source + i, target + i, flipped);
    }
}

#define TESSALINE_INSTANTIATE(Bits)                                                                \
    template void copy_transposed(const Bits*, std::uint64_t, Bits*, std::uint64_t, std::uint64_t, \
                                  std::uint64_t, Bits, bool);                                      \
    template void copy_flipped(const Bits*, Bits*, std::uint64_t, Bits);
TESSALINE_INSTANTIATE(std::uint16_t)
TESSALINE_INSTANTIATE(std::uint32_t)
TESSALINE_INSTANTIATE(std::uint64_t)
TESSALINE_INSTANTIATE(Bits128)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
