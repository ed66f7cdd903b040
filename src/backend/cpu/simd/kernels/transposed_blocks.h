// SPDX-License-Identifier: Apache-2.0
#pragma once

// The transposing copy of matrices by blocks that turn in registers; see transposed_copy.h.

#include "backend/cpu/simd/kernels/arithmetic.h"
#include "backend/cpu/simd/plain/block_sizes.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// Turns a square block of as many rows as a vector has lanes. Its columns, with the bits `flipped`
/// changed, go to position i of `lines`. Elements lie in memory that holds objects of another type.
template <typename Set, typename Bits>
struct RegisterBlock {
    using Component = typename Set::Component;
    using Register = typename Set::Register;
    static constexpr Index side = sizeof(Register) / sizeof(Bits);

    template <typename Ahead>
    [[gnu::always_inline]] static void turn(const Bits* from, Index stride, Bits* const* lines,
                                            Index i, Register flipped, const Ahead& ahead) {
        Register rows[side];
        for_places<side>([&](auto row) {
            rows[row.value] = load(from + row.value * stride);
            ahead(from + row.value * stride);
        });
        if constexpr (sizeof(Bits) == sizeof(Component)) {
            Set::transpose(rows);
        } else {
            Set::transpose_pairs(rows);
        }
        for_places<side>(
            [&](auto line) { store(lines[line.value] + i, rows[line.value], flipped); });
    }

    static Register load(const Bits* from) {
        return Set::load(reinterpret_cast<const Component*>(from));
    }
    static void store(Bits* to, Register value, Register flipped) {
        Set::store(reinterpret_cast<Component*>(to), Set::flipped(value, flipped));
    }
};

/// Two neighbours of a column make a component: two rows give one of the columns at even places and
/// one of those at odd places.
template <typename Set>
struct RegisterBlock<Set, std::uint16_t> {
    using Bits = std::uint16_t;
    using Register = typename Set::Register;
    using Words = RegisterBlock<Set, std::uint32_t>;
    static constexpr Index side = 2 * Set::lanes;

    template <typename Ahead>
    [[gnu::always_inline]] static void turn(const Bits* from, Index stride, Bits* const* lines,
                                            Index i, Register flipped, const Ahead& ahead) {
        turn_half(from, stride, lines, i, flipped, [&](Index row, Register a, Register b) {
            ahead(from + 2 * row * stride);
            return Set::low_halves(a, b);
        });
        turn_half(from, stride, lines + 1, i, flipped, [&](Index row, Register a, Register b) {
            ahead(from + (2 * row + 1) * stride);
            return Set::high_halves(a, b);
        });
    }

  private:
    template <typename Merge>
    [[gnu::always_inline]] static void turn_half(const Bits* from, Index stride, Bits* const* lines,
                                                 Index i, Register flipped, const Merge& merge) {
        Register rows[Set::lanes];
        for_places<Set::lanes>([&](auto row) {
            const Bits* const upper = from + 2 * row.value * stride;
            rows[row.value] = merge(row.value, load(upper), load(upper + stride));
        });
        Set::transpose(rows);
        for_places<Set::lanes>([&](auto line) {
            Words::store(reinterpret_cast<std::uint32_t*>(lines[2 * line.value] + i),
                         rows[line.value], flipped);
        });
    }
    static Register load(const Bits* from) {
        return Words::load(reinterpret_cast<const std::uint32_t*>(from));
    }
};

/// Goes through the target in bands of `width` lines, tile by tile along the lines. Where that pays
/// a tile is turned in a buffer; of each line only whole cache lines are then written, and the rest
/// waits in the buffer for the next tile, so that a store past the caches never writes a part of a
/// line.
template <typename Set, typename Bits>
class TransposedCopy {
  public:
    static void copy(const Bits* source, Index source_stride, Bits* target, Index target_stride,
                     Index rows, Index cols, Bits flipped, bool past_caches) {
        TransposedCopy(source, source_stride, target, target_stride, rows, flipped)
            .copy(cols, past_caches);
    }

  private:
    using Register = typename Set::Register;
    using Block = RegisterBlock<Set, Bits>;
    static constexpr Index cache_line = 64;
    // Rows of the source in a tile, and elements of each.
    static constexpr Index height = transposed_rows(sizeof(Bits));
    static constexpr Index width = transposed_row_bytes(sizeof(Bits)) / sizeof(Bits);
    static constexpr Index rows_ahead = transposed_rows_ahead;
    static constexpr Index slots = cache_line / sizeof(Bits); ///< elements of a cache line
    static constexpr Index side = Block::side;

    TransposedCopy(const Bits* source, Index source_stride, Bits* target, Index target_stride,
                   Index rows, Bits flipped)
        : source_(source),
          source_stride_(source_stride),
          target_(target),
          target_stride_(target_stride),
          rows_(rows),
          flipped_(flipped) {
        Bits repeated[sizeof(Register) / sizeof(Bits)];
        for (Bits& each : repeated) {
            each = flipped;
        }
        flipped_lanes_ = Set::load(reinterpret_cast<const typename Set::Component*>(repeated));
    }

    void copy(Index cols, bool past_caches) {
        past_caches_ = past_caches;
        const bool buffered = past_caches || has_crowded_lines();
        for (Index column = 0; column < cols; column += width) {
            const Index lines = least(width, cols - column);
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

    static constexpr Index least(Index a, Index b) { return a < b ? a : b; }

    void write_band(Index column, Index lines) {
        Bits* starts[width];
        for (Index row = 0; row < rows_; row += height) {
            for (Index line = 0; line < lines; ++line) {
                starts[line] = target_line(column + line) + row;
            }
            turn<false>(row, least(height, rows_ - row), column, lines, starts);
        }
    }

    void write_band_by_cache_lines(Index column, Index lines) {
        Bits* starts[width];
        for (Index line = 0; line < lines; ++line) {
            const auto address = reinterpret_cast<std::uintptr_t>(target_line(column + line));
            skews_[line] = address % cache_line / sizeof(Bits);
            starts[line] = turned_[line] + skews_[line];
        }
        Index row = 0;
        for (; row + height <= rows_; row += height) {
            turn<true>(row, height, column, lines, starts);
            for (Index line = 0; line < lines; ++line) {
                write_whole_cache_lines(turned_[line], skews_[line], row,
                                        target_line(column + line) + row - skews_[line]);
            }
        }
        turn<false>(row, rows_ - row, column, lines, starts);
        for (Index line = 0; line < lines; ++line) {
            // What waits, and the rest of the line; there is nothing before the line's start.
            const Index waiting = row == 0 ? 0 : skews_[line];
            __builtin_memcpy(target_line(column + line) + row - waiting,
                             turned_[line] + skews_[line] - waiting,
                             (waiting + rows_ - row) * sizeof(Bits));
        }
    }

    /// Turns a tile of the source, a line of it to each of `starts`. The order is that of the
    /// source: rows whose distance is a power of two share few places of a cache.
    template <bool Prefetches>
    void turn(Index row, Index count, Index column, Index lines, Bits* const* starts) const {
        const Bits* const from = source_ + row * source_stride_ + column;
        Index i = 0;
        for (; i + side <= count; i += side) {
            Index j = 0;
            for (; j + side <= lines; j += side) {
                Block::turn(from + i * source_stride_ + j, source_stride_, starts + j, i,
                            flipped_lanes_, [this, j](const Bits* elements) {
                                if constexpr (Prefetches) {
                                    prefetch(elements, j == 0);
                                }
                            });
            }
            copy_elements(from, i, i + side, j, lines, starts);
        }
        copy_elements(from, i, count, 0, lines, starts);
    }

    /// Asks for a vector that a later tile reads. It ends in the cache line in which its neighbour
    /// begins. Inlined, since g++ 12 takes a function that only prefetches for one without effects
    /// and drops its calls.
    [[gnu::always_inline]] void prefetch(const Bits* elements, bool has_no_neighbour) const {
        const auto* const begin =
            reinterpret_cast<const char*>(elements + rows_ahead * source_stride_);
        if (has_no_neighbour) {
            _mm_prefetch(begin, _MM_HINT_T1);
        }
        _mm_prefetch(begin + sizeof(Register) - 1, _MM_HINT_T1);
    }

    /// The elements of the rows [begin, end) and columns [first, last) of a tile, one by one.
    void copy_elements(const Bits* from, Index begin, Index end, Index first, Index last,
                       Bits* const* starts) const {
        for (Index i = begin; i < end; ++i) {
            for (Index j = first; j < last; ++j) {
                Bits element;
                __builtin_memcpy(&element, from + i * source_stride_ + j, sizeof element);
                element = static_cast<Bits>(element ^ flipped_);
                __builtin_memcpy(starts[j] + i, &element, sizeof element);
            }
        }
    }

    /// Writes what a line of the buffer holds up to its last whole cache line, and moves the rest
    /// to the front.
    void write_whole_cache_lines(Bits* line, Index skew, Index row, Bits* target) const {
        Index slot = 0;
        if (row == 0 && skew != 0) {
            __builtin_memcpy(target + skew, line + skew, (slots - skew) * sizeof(Bits));
            slot = slots;
        }
        for (; slot < height; slot += slots) {
            for (Index place = 0; place < slots; place += sizeof(Register) / sizeof(Bits)) {
                using Component = typename Set::Component;
                const Register value =
                    Set::load(reinterpret_cast<const Component*>(line + slot + place));
                auto* const to = reinterpret_cast<Component*>(target + slot + place);
                if (past_caches_) {
                    Set::stream(to, value);
                } else {
                    Set::store(to, value);
                }
            }
        }
        __builtin_memcpy(line, line + height, cache_line); // of a fixed size, to be inlined
    }

    /// Whether the lines of a band of the target meet in so few sets of the first cache, 4 KiB of
    /// which lie apart, that writing to all of them at once drives each other's out.
    bool has_crowded_lines() const {
        const bool lined_up = reinterpret_cast<std::uintptr_t>(target_) % sizeof(Bits) == 0;
        return lined_up && target_stride_ * sizeof(Bits) % 1024 == 0;
    }

    Bits* target_line(Index line) const { return target_ + line * target_stride_; }

    const Bits* source_;
    Index source_stride_;
    Bits* target_;
    Index target_stride_;
    Index rows_;
    Bits flipped_;
    Register flipped_lanes_;
    bool past_caches_ = false;
    Index skews_[width]{}; ///< elements between the start of a cache line and of the line
    alignas(cache_line) Bits turned_[width][height + slots];
};

} // namespace Tessaline::SimdKernels
