// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels that move or combine elements by their position; see simd_kernels.h for what each
// computes.

#include "backend/cpu/simd/simd_forms.h"

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
            for_element_vectors<Elements>(B.cols, [=](Index i, auto part) {
                Elements::store(to, i, product<Set>(factor, Elements::load(b, i, part)), part);
            });
        }
    }
}

template <typename Set>
class Structure {
    using Register = typename Set::Register;

  public:
    static void partial_trace_left(RealMatrixInput A, RealMatrixOutput out, Index begin,
                                   Index end) {
        for (Index i = begin; i < end; ++i) {
            for_vectors<Set>(out.cols, [=](std::size_t j, auto lanes) {
                Register sum = Set::zero();
                for (Index t = 0; t < A.rows; t += out.rows) {
                    sum = sum + load<Set>(A.data + (t + i) * A.cols + t + j, lanes);
                }
                store<Set>(out.data + i * out.cols + j, sum, lanes);
            });
        }
    }

    static void partial_trace_right(RealMatrixInput A, RealMatrixOutput out, Index begin,
                                    Index end) {
        const Index traced = A.rows / out.rows;
        for (Index i = begin; i < end; ++i) {
            for (Index j = 0; j < out.cols; ++j) {
                const float* block = A.data + i * traced * A.cols + j * traced;
                float sum = 0;
                for (Index t = 0; t < traced; ++t) {
                    sum += block[t * A.cols + t];
                }
                out.data[i * out.cols + j] = sum;
            }
        }
    }
};

} // namespace Tessaline::SimdKernels
