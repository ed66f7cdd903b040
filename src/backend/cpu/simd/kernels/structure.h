// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels that move or combine elements by their position; see kernels.h for what each
// computes.

#include "backend/cpu/simd/kernels/forms.h"

namespace Tessaline::SimdKernels {

/// The rows [begin, end) of a Kronecker product.
template <typename Elements>
void kron_rows(typename Elements::Form::MatrixInput A, typename Elements::Form::MatrixInput B,
               typename Elements::Form::MatrixOutput out, Index begin, Index end) {
    using Set = typename Elements::Set;
    for (Index row = begin; row < end; ++row) {
        const auto a = Elements::of(A, row / B.rows * A.cols);
        const auto b = Elements::of(B, row % B.rows * B.cols);
        for (Index j = 0; j < A.cols; ++j) {
            const auto to = Elements::of(out, row * out.cols + j * B.cols);
            const auto factor = Elements::broadcast(a, j);
            for_element_vectors<Elements>(B.cols, [=](Index i, auto mask) {
                Elements::store(to, i, product<Set>(factor, Elements::load(b, i, mask)), mask);
            });
        }
    }
}

template <typename Elements>
void partial_trace_left(typename Elements::Form::MatrixInput A,
                        typename Elements::Form::MatrixOutput out, Index begin, Index end) {
    for (Index i = begin; i < end; ++i) {
        const auto to = Elements::of(out, i * out.cols);
        for_element_vectors<Elements>(out.cols, [&](Index j, auto mask) {
            auto sum = Elements::zero();
            for (Index t = 0; t < A.rows; t += out.rows) {
                const auto block = Elements::of(A, (t + i) * A.cols + t);
                sum = plus<typename Elements::Set>(sum, Elements::load(block, j, mask));
            }
            Elements::store(to, j, sum, mask);
        });
    }
}

template <typename Elements>
void partial_trace_right(typename Elements::Form::MatrixInput A,
                         typename Elements::Form::MatrixOutput out, Index begin, Index end) {
    const Index traced = A.rows / out.rows;
    for (Index i = begin; i < end; ++i) {
        for (Index j = 0; j < out.cols; ++j) {
            const Index block = i * traced * A.cols + j * traced;
            float real = 0;
            float imag = 0;
            for (Index t = 0; t < traced; ++t) {
                const auto part = Elements::parts_at(A, block + t * A.cols + t);
                real += *part.real;
                imag += *part.imag;
            }
            const auto to = Elements::parts_at(out, i * out.cols + j);
            *to.real = as_result<typename Elements::Set>(real);
            *to.imag = as_result<typename Elements::Set>(imag);
        }
    }
}

} // namespace Tessaline::SimdKernels
