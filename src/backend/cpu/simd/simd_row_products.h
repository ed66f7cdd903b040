// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products of matrix rows with a vector, summed in the order of the elements.

#include "backend/cpu/simd/simd_elements.h"
#include "backend/cpu/simd/simd_infinity_recovery.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// From this many bytes on, rows come from memory and are asked for ahead: 25 % more speed there,
/// where it would cost 10 % in caches.
inline constexpr Index prefetched_row_bytes = Index{16} << 20U;

/// As many rows as a vector has lanes share a tile: the products of a row with the vector lie side
/// by side, a transpose puts them one below the other, and one addition a column then serves all
/// rows, each in its own order.
template <typename Elements>
class RowProducts {
    using Set = typename Elements::Set;
    using Register = typename Set::Register;
    using Value = typename Elements::Value;
    using Input = typename Elements::Input;
    static constexpr Index lanes = Set::lanes;

  public:
    /// Sets the elements of `out` to the sums of `times(element, factor)` over rows of A and x.
    template <typename Product>
    static void run(Strided<Input> A, Input x, typename Elements::Output out, Index rows,
                    Index cols, const Product& times) {
        const Index row_bytes = cols * Elements::parts * sizeof(typename Set::Component);
        const bool from_memory = rows > prefetched_row_bytes / (row_bytes + 1);
        for_element_vectors<Elements>(rows, [&](Index row, auto part) {
            const Input first = Elements::offset(A.data, row * A.stride);
            const Tile tile{first, A.stride, lanes_of(part, rows - row), x, cols};
            Value sums =
                from_memory ? tile.template sums<true>(times) : tile.template sums<false>(times);
            if constexpr (Elements::recovers_infinities) {
                sums = tile.recovered(sums);
            }
            Elements::store(out, row, sums, part);
        });
    }

  private:
    /// Up to `lanes` rows and the vector.
    struct Tile {
        Input first;
        Index stride;
        Index rows;
        Input x;
        Index cols;

        template <bool Prefetches, typename Product>
        Value sums(const Product& times) const {
            Value sums = Elements::zero();
            for_element_vectors<Elements>(cols, [&](Index k, auto columns) {
                const Value factor = Elements::load(x, k, columns);
                Register terms[Elements::parts][lanes];
                for_places<lanes>([&](auto i) {
                    // Rows beyond the last give no element; any product will do.
                    const Index element = (i.value < rows ? i.value : 0) * stride + k;
                    if constexpr (Prefetches) {
                        Elements::prefetch(first, element + 8 * lanes);
                    }
                    put(times(Elements::load(first, element, columns), factor), terms, i);
                });
                add_columns(sums, terms, lanes_of(columns, cols - k));
            });
            return sums;
        }

        Value recovered(Value found) const {
            if (lost_lanes<Set>(found) == 0) {
                return found;
            }
            return InfinityRecovery<Set>::template recovered<Update::replace>(found, rows,
                                                                              {.A = x,
                                                                               .B = first,
                                                                               .b_step = 1,
                                                                               .b_next = stride,
                                                                               .terms = cols,
                                                                               .before = nullptr});
        }
    };

    static constexpr Index lanes_of(AllLanes, Index) { return lanes; }
    static Index lanes_of(typename Elements::Part, Index rest) { return rest; }

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
};

/// out = A x.
template <typename Set>
void split_row_products(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin, Index end) {
    const Index start = begin * A.cols;
    RowProducts<SplitElements<Set>>::run(
        {{A.real + start, A.imag + start}, A.cols}, {x.real, x.imag},
        {out.real + begin, out.imag + begin}, end - begin, A.cols,
        [](Complex<Set> element, Complex<Set> factor) { return product<Set>(element, factor); });
}

/// out = A conj(x).
template <typename Set>
void split_conjugate_row_products(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin,
                                  Index end) {
    const Index start = begin * A.cols;
    RowProducts<SplitElements<Set>>::run({{A.real + start, A.imag + start}, A.cols},
                                         {x.real, x.imag}, {out.real + begin, out.imag + begin},
                                         end - begin, A.cols,
                                         [](Complex<Set> element, Complex<Set> factor) {
                                             return conjugate_product<Set>(factor, element);
                                         });
}

/// y = A x for rows that a caller cuts; see simd_unfused_kernels.h.
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

} // namespace Tessaline::SimdKernels
