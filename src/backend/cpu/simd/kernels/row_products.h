// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products of matrix rows with a vector, summed in the order of the elements.

#include "backend/cpu/simd/kernels/forms.h"
#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/plain/block_sizes.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

#include <cstdint>
#include <type_traits>

namespace Tessaline::SimdKernels {

/// Rows of the elements that a product computes with.
template <typename Elements>
struct PlainRows {
    using Input = typename Elements::Input;
    static constexpr Index element_bytes =
        Elements::parts * sizeof(typename Elements::Set::Component);
    static constexpr bool can_be_aligned = std::is_pointer_v<Input>; ///< not two planes

    static Input offset(Input elements, Index index) { return Elements::offset(elements, index); }
    static void prefetch(Input elements, Index index) { Elements::prefetch(elements, index); }
    /// One vector of elements, or the first `rest` of one.
    template <typename Lanes>
    static typename Elements::Value load(Input elements, Index index, Lanes lanes, Index /*rest*/) {
        return Elements::load(elements, index, lanes);
    }
};

/// Rows whose parts take two bytes and are widened, as Format says, on the way.
template <typename Elements, typename Format>
struct StoredRows {
    using Set = typename Elements::Set;
    using Input = const std::uint16_t*;
    static constexpr Index parts = Elements::parts;
    static constexpr Index element_bytes = parts * sizeof(std::uint16_t);
    static constexpr bool can_be_aligned = false; ///< nothing is gained by it

    static Input offset(Input elements, Index index) { return elements + parts * index; }
    static void prefetch(Input elements, Index index) {
        __builtin_prefetch(elements + parts * index);
    }
    static typename Elements::Value load(Input elements, Index index, AllLanes, Index /*rest*/) {
        return widened(elements + parts * index);
    }
    template <typename LaneMask>
    static typename Elements::Value load(Input elements, Index index, const LaneMask&, Index rest) {
        std::uint16_t padded[parts * Set::lanes]{};
        for (Index i = 0; i < parts * rest; ++i) {
            padded[i] = elements[parts * index + i];
        }
        return widened(padded);
    }

  private:
    static typename Elements::Value widened(Input vector) {
        if constexpr (parts == 1) {
            return Format::load(vector);
        } else {
            return Elements::as_planes(Format::load(vector), Format::load(vector + Set::lanes));
        }
    }
};

/// As many rows as a vector has lanes share a tile: the products of a row with the vector lie side
/// by side, a transpose puts them one below the other, and one addition a column then serves all
/// rows, each in its own order.
template <typename Elements, typename Rows = PlainRows<Elements>>
class RowProducts {
    using Set = typename Elements::Set;
    using Register = typename Set::Register;
    using Value = typename Elements::Value;
    using Input = typename Elements::Input;
    using RowInput = typename Rows::Input;
    static constexpr Index lanes = Set::lanes;

  public:
    /// Sets the elements of `out` to the sums of `times(element, factor)` over rows of A and x.
    template <typename Product>
    static void run(Strided<RowInput> A, Input x, typename Elements::Output out, Index rows,
                    Index cols, const Product& times) {
        const RowProducts products{A, x, cols};
        const Index row_bytes = cols * Rows::element_bytes;
        if (rows > prefetched_row_bytes / (row_bytes + 1)) {
            products.template fill<true>(out, rows, times);
        } else {
            products.template fill<false>(out, rows, times);
        }
    }

  private:
    /// Tiles whose sums run side by side. One alone would wait for each of its additions, where
    /// they take longer than the transpose.
    static constexpr Index tiles =
        Set::row_tiles > Elements::parts ? Set::row_tiles / Elements::parts : 1;

    RowProducts(Strided<RowInput> A, Input x, Index cols)
        : a_(A),
          x_(x),
          cols_(cols),
          head_(unaligned_head(A, cols)) {}

    /// How many elements of each row lie before the first vector that no line's end divides. None
    /// where rows differ in that.
    static Index unaligned_head(Strided<RowInput> A, Index cols) {
        if constexpr (Rows::can_be_aligned) {
            constexpr Index line = least(64, lanes * Rows::element_bytes);
            const auto address = reinterpret_cast<std::uintptr_t>(A.data);
            const bool alike = A.stride * Rows::element_bytes % line == 0;
            if (alike && cols * Rows::element_bytes >= aligned_row_bytes &&
                address % Rows::element_bytes == 0) {
                return (line - address % line) % line / Rows::element_bytes;
            }
        }
        return 0;
    }
    static constexpr Index least(Index a, Index b) { return a < b ? a : b; }

    template <bool Prefetches, typename Product>
    void fill(typename Elements::Output out, Index rows, const Product& times) const {
        Index row = 0;
        if constexpr (tiles > 1) {
            for (; row + tiles * lanes <= rows; row += tiles * lanes) {
                fill_tiles<tiles, Prefetches>(out, row, AllLanes{}, lanes, times);
            }
        }
        for (; row < rows; row += lanes) {
            if (row + lanes <= rows) {
                fill_tiles<1, Prefetches>(out, row, AllLanes{}, lanes, times);
            } else {
                fill_tiles<1, Prefetches>(out, row, Elements::first_lanes(rows - row), rows - row,
                                          times);
            }
        }
    }

    /// `count` is of the rows of a tile.
    template <Index Tiles, bool Prefetches, typename Lanes, typename Product>
    void fill_tiles(typename Elements::Output out, Index row, Lanes mask, Index count,
                    const Product& times) const {
        Value sums[Tiles];
        for_places<Tiles>([&](auto tile) {
            sums[tile.value] = Rows::can_be_aligned && head_ != 0
                                   ? sums_of_heads(row + tile.value * lanes, count, times)
                                   : Elements::zero();
        });
        const Strided<RowInput> A{Rows::offset(a_.data, head_), a_.stride};
        const Input x = Elements::offset(x_, head_);
        const Index cols = cols_ - head_;
        for_element_vectors<Elements>(cols, [&](Index k, auto columns) {
            const Value factor = Elements::load(x, k, columns);
            for_places<Tiles>([&](auto tile) {
                const RowInput first =
                    Rows::offset(A.data, (row + tile.value * lanes) * A.stride + k);
                Register terms[Elements::parts][lanes];
                for_places<lanes>([&](auto i) {
                    // Rows beyond the last give no element; any product will do.
                    const Index line = (i.value < count ? i.value : 0) * A.stride;
                    if constexpr (Prefetches) {
                        Rows::prefetch(first, line + 16 * lanes);
                    }
                    put(times(Rows::load(first, line, columns, cols - k), factor), terms, i);
                });
                add_columns(sums[tile.value], terms, lanes_of(columns, cols - k));
            });
        });
        for_places<Tiles>([&](auto tile) {
            const Index start = row + tile.value * lanes;
            Value sum = sums[tile.value];
            if constexpr (Elements::recovers_infinities) {
                sum = recovered(sum, Elements::offset(a_.data, start * a_.stride), count);
            }
            Elements::store(out, start, sum, mask);
        });
    }

    /// Over the elements of a tile's rows before the first vector within lines.
    template <typename Product>
    [[gnu::noinline]] Value sums_of_heads(Index row, Index count, const Product& times) const {
        const auto columns = Elements::first_lanes(head_);
        const Value factor = Elements::load(x_, 0, columns);
        const RowInput first = Rows::offset(a_.data, row * a_.stride);
        Register terms[Elements::parts][lanes];
        for_places<lanes>([&](auto i) {
            const Index line = (i.value < count ? i.value : 0) * a_.stride;
            put(times(Rows::load(first, line, columns, head_), factor), terms, i);
        });
        Value sums = Elements::zero();
        add_columns(sums, terms, head_);
        return sums;
    }

    Value recovered(Value found, Input first, Index count) const {
        if (lost_lanes<Set>(found) == 0) {
            return found;
        }
        return InfinityRecovery<Set>::template recovered<Update::replace>(found, count,
                                                                          {.A = x_,
                                                                           .B = first,
                                                                           .b_step = 1,
                                                                           .b_next = a_.stride,
                                                                           .terms = cols_,
                                                                           .before = nullptr});
    }

    static constexpr Index lanes_of(AllLanes, Index) { return lanes; }
    static Index lanes_of(typename Elements::LaneMask, Index rest) { return rest; }

    template <typename Place>
    static void put(Register value, Register (&terms)[1][lanes], Place i) {
        terms[0][i.value] = value;
    }
    template <typename Place>
    static void put(Complex<Set> value, Register (&terms)[2][lanes], Place i) {
        terms[0][i.value] = value.real;
        terms[1][i.value] = value.imag;
    }

    static void add_columns(Register& sums, Register (&terms)[1][lanes], Index count) {
        sums = sum_columns(sums, terms[0], count);
    }
    static void add_columns(Complex<Set>& sums, Register (&terms)[2][lanes], Index count) {
        sums = {sum_columns(sums.real, terms[0], count), sum_columns(sums.imag, terms[1], count)};
    }
    static Register sum_columns(Register sum, Register (&terms)[lanes], Index count) {
        Set::transpose(terms);
        if (count == lanes) {
            for_places<lanes>([&](auto i) { sum = sum + terms[i.value]; });
        } else {
            for_places<lanes>([&](auto i) {
                if (i.value < count) {
                    sum = sum + terms[i.value];
                }
            });
        }
        return sum;
    }

    Strided<RowInput> a_;
    Input x_;
    Index cols_;
    Index head_; ///< see unaligned_head()
};

/// out = A x.
template <typename Elements>
void row_products(typename Elements::Form::MatrixInput A, typename Elements::Form::VectorInput x,
                  typename Elements::Form::VectorOutput out, Index begin, Index end) {
    using Value = typename Elements::Value;
    RowProducts<Elements>::run({Elements::of(A, begin * A.cols), A.cols}, Elements::of(x),
                               Elements::of(out, begin), end - begin, A.cols,
                               [](Value element, Value factor) {
                                   return product<typename Elements::Set>(element, factor);
                               });
}

/// out = A conj(x).
template <typename Elements>
void conjugate_row_products(typename Elements::Form::MatrixInput A,
                            typename Elements::Form::VectorInput x,
                            typename Elements::Form::VectorOutput out, Index begin, Index end) {
    using Value = typename Elements::Value;
    RowProducts<Elements>::run(
        {Elements::of(A, begin * A.cols), A.cols}, Elements::of(x), Elements::of(out, begin),
        end - begin, A.cols, [](Value element, Value factor) {
            return conjugate_product<typename Elements::Set>(factor, element);
        });
}

/// y = A x for rows that a caller cuts; see unfused_kernels.h.
template <typename Elements>
void strided_row_products(StridedRows<const typename Elements::Element> A,
                          const typename Elements::Element* x, typename Elements::Element* y,
                          Index rows, Index cols) {
    using Value = typename Elements::Value;
    RowProducts<Elements>::run({Elements::input(A.data), A.stride}, Elements::input(x),
                               Elements::output(y), rows, cols, [](Value element, Value factor) {
                                   return product<typename Elements::Set>(element, factor);
                               });
}

/// y = A x for rows that a caller cuts and that are widened on the way.
template <typename Elements, typename Format>
void widened_row_products(StridedRows<const std::uint16_t> A, const typename Elements::Element* x,
                          typename Elements::Element* y, Index rows, Index cols) {
    using Value = typename Elements::Value;
    RowProducts<Elements, StoredRows<Elements, Format>>::run(
        {A.data, A.stride}, Elements::input(x), Elements::output(y), rows, cols,
        [](Value element, Value factor) {
            return product<typename Elements::Set>(element, factor);
        });
}

} // namespace Tessaline::SimdKernels
