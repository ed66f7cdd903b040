// SPDX-License-Identifier: Apache-2.0
#pragma once

// Kernels that move or combine elements by their position; see simd_kernels.h for what each
// computes.

#include "backend/cpu/simd/simd_arithmetic.h"

namespace Tessaline::SimdKernels {

template <typename Set>
class Structure {
    using Register = typename Set::Register;

  public:
    static void kron(SplitMatrixInput A, SplitMatrixInput B, SplitMatrixOutput out, Index begin,
                     Index end) {
        for (Index row = begin; row < end; ++row) {
            const Index a_row = row / B.rows;
            const Index b_start = row % B.rows * B.cols;
            const SplitInput b{B.real + b_start, B.imag + b_start, B.cols};
            for (Index j = 0; j < A.cols; ++j) {
                const Index a = a_row * A.cols + j;
                const Index start = row * out.cols + j * B.cols;
                multiply_row(broadcast_complex<Set>(A.real[a], A.imag[a]), b,
                             {out.real + start, out.imag + start, B.cols});
            }
        }
    }

    static void outer(SplitInput a, SplitInput b, SplitMatrixOutput out, Index begin, Index end) {
        for (Index row = begin; row < end; ++row) {
            const Index start = row * b.size;
            multiply_row(broadcast_complex<Set>(a.real[row], a.imag[row]), b,
                         {out.real + start, out.imag + start, b.size});
        }
    }

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

  private:
    static void multiply_row(Complex<Set> a, SplitInput b, SplitOutput out) {
        for_vectors<Set>(b.size, [=](std::size_t i, auto lanes) {
            store_complex<Set>(out, i, product<Set>(a, load_complex<Set>(b, i, lanes)), lanes);
        });
    }
};

} // namespace Tessaline::SimdKernels
