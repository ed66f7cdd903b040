// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kronecker products of interleaved or real matrices; see simd_unfused_kernels.h.

#include "backend/cpu/simd/simd_elements.h"
#include "backend/cpu/simd/simd_infinity_recovery.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

namespace Tessaline::SimdKernels {

template <typename Elements>
class Kron {
    using Set = typename Elements::Set;
    using Element = typename Elements::Element;
    using Value = typename Elements::Value;
    using Input = typename Elements::Input;
    using Output = typename Elements::Output;

  public:
    static void kron(StridedRows<const Element> A, StridedRows<const Element> B, Element* out,
                     KronExtents extents, Index begin, Index end) {
        Output row_out = Elements::output(out);
        for (Index row = begin; row < end; ++row) {
            const Input a = Elements::input(A.data + row / extents.b_rows * A.stride);
            const Input b = Elements::input(B.data + row % extents.b_rows * B.stride);
            for (Index j = 0; j < extents.a_cols; ++j) {
                multiply_row(Elements::offset(a, j), b, row_out, extents.b_cols);
                row_out += extents.b_cols * Elements::parts;
            }
        }
    }

  private:
    /// out = the first element at `a`, times b.
    static void multiply_row(Input a, Input b, Output out, Index count) {
        const Value factor = Elements::broadcast(a, 0);
        for_element_vectors<Elements>(count, [&](Index i, auto part) {
            Value terms = product<Set>(factor, Elements::load(b, i, part));
            if constexpr (Elements::recovers_infinities) {
                terms = recovered(terms, a, Elements::offset(b, i), count - i);
            }
            Elements::store(out, i, terms, part);
        });
    }

    static Value recovered(Value terms, Input a, Input b, Index count) {
        if (lost_lanes<Set>(terms) == 0) {
            return terms;
        }
        return InfinityRecovery<Set>::recovered(terms, count < Set::lanes ? count : Set::lanes, a,
                                                b);
    }
};

} // namespace Tessaline::SimdKernels
