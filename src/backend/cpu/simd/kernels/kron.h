// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kronecker products of interleaved or real matrices; see unfused_kernels.h.

#include "backend/cpu/simd/kernels/elements.h"
#include "backend/cpu/simd/kernels/infinity_recovery.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::SimdKernels {

template <typename Elements>
class Kron {
    using Set = typename Elements::Set;
    using Element = typename Elements::Element;
    using Value = typename Elements::Value;
    using Input = typename Elements::Input;
    using Output = typename Elements::Output;
    static constexpr Index lanes = Set::lanes;

  public:
    static void kron(StridedRows<const Element> A, StridedRows<const Element> B, Element* out,
                     KronExtents extents, Index begin, Index end) {
        const Index row_size = extents.a_cols * extents.b_cols;
        for (Index row = begin; row < end; ++row, out += row_size) {
            const Input a = Elements::input(A.data + row / extents.b_rows * A.stride);
            const Input b = Elements::input(B.data + row % extents.b_rows * B.stride);
            if (extents.b_cols <= lanes) {
                fill_with_narrow(a, extents.a_cols, b, extents.b_cols, Elements::output(out));
            } else {
                fill_with_wide(a, extents.a_cols, b, extents.b_cols, Elements::output(out));
            }
        }
    }

  private:
    static void fill_with_wide(Input a, Index a_count, Input b, Index b_count, Output out) {
        for (Index j = 0; j < a_count; ++j) {
            for_element_vectors<Elements>(b_count, [&](Index i, auto mask) {
                const Value neighbours = Elements::load(b, i, mask);
                const Index rest = b_count - i;
                Elements::store(
                    out, j * b_count + i,
                    products(a, j, Elements::offset(b, i), neighbours, rest < lanes ? rest : lanes),
                    mask);
            });
        }
    }

    /// A row of B fits into a vector, which takes as many of its copies as go, each times its own
    /// element of A. Stored whole, what is too much of a vector is written over with the next one.
    static void fill_with_narrow(Input a, Index a_count, Input b, Index b_count, Output out) {
        if (b_count == 0) {
            return;
        }
        const Index copies = lanes / b_count;
        std::uint32_t of_a[lanes];
        std::uint32_t of_b[lanes];
        for (Index lane = 0; lane < lanes; ++lane) {
            of_a[lane] = static_cast<std::uint32_t>(lane / b_count);
            of_b[lane] = static_cast<std::uint32_t>(lane % b_count);
        }
        const auto places_of_a = Set::places(of_a);
        const auto part_of_a = Elements::first_lanes(copies);
        const auto part_of_b = Elements::first_lanes(b_count);
        const Value row = Elements::load(b, 0, part_of_b);
        const Value rows = permuted(row, Set::places(of_b));
        Index j = 0;
        for (; j * b_count + lanes <= a_count * b_count; j += copies) {
            const Value factors = permuted(Elements::load(a, j, part_of_a), places_of_a);
            const Value terms = product<Set>(factors, rows);
            if (recovers(terms)) {
                for (Index copy = 0; copy < copies; ++copy) {
                    Elements::store(out, (j + copy) * b_count,
                                    products(a, j + copy, b, row, b_count), part_of_b);
                }
            } else {
                Elements::store(out, j * b_count, terms, AllLanes{});
            }
        }
        for (; j < a_count; ++j) {
            Elements::store(out, j * b_count, products(a, j, b, row, b_count), part_of_b);
        }
    }

    static typename Set::Register permuted(typename Set::Register value,
                                           typename Set::Places places) {
        return Set::permuted(value, places);
    }
    static Complex<Set> permuted(Complex<Set> value, typename Set::Places places) {
        return {Set::permuted(value.real, places), Set::permuted(value.imag, places)};
    }

    static bool recovers(Value terms) {
        if constexpr (Elements::recovers_infinities) {
            return __builtin_expect(lost_lanes<Set>(terms) != 0, 0);
        } else {
            return false;
        }
    }

    /// a[j] times the `count` first elements of b, which the lanes of `neighbours` hold.
    static Value products(Input a, Index j, Input b, Value neighbours, Index count) {
        const Value terms = product<Set>(Elements::broadcast(a, j), neighbours);
        if constexpr (Elements::recovers_infinities) {
            if (recovers(terms)) {
                return InfinityRecovery<Set>::recovered(terms, count, Elements::offset(a, j), b);
            }
        }
        return terms;
    }
};

/// out[i] = the sum over increasing t of elements[t * step + i], from zero.
template <typename Elements>
void sum_of_runs(const typename Elements::Element* elements, Index step, Index terms,
                 typename Elements::Element* out, Index count) {
    using Set = typename Elements::Set;
    using Component = typename Set::Component;
    const auto* from = reinterpret_cast<const Component*>(elements);
    auto* to = reinterpret_cast<Component*>(out);
    for_vectors<Set>(count * Elements::parts, [&](Index i, auto mask) {
        typename Set::Register sum = Set::zero();
        for (Index t = 0; t < terms; ++t) {
            sum = sum + load<Set>(from + t * step * Elements::parts + i, mask);
        }
        store<Set>(to + i, as_result<Set>(sum), mask);
    });
}

} // namespace Tessaline::SimdKernels
