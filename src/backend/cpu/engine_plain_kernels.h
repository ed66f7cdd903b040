// SPDX-License-Identifier: Apache-2.0
#pragma once

// The complex64 products of the SIMD engines as plain loops, element by element: what defines the
// bits of an engine's vector kernels. The engine with fused operations fuses the second product of
// each part and, where a product is added to a sum, the first as well. No infinity is recovered.
//
// Local to the unit that includes it, and without inline functions of the standard library: a unit
// for one instruction set keeps its copy to itself.

#include "tessaline/storage/kernel_views.h"

namespace Tessaline {

namespace {

template <bool Fused>
struct EngineArithmetic {
    static void multiply(float a_real, float a_imag, float b_real, float b_imag, float& real,
                         float& imag) {
        if constexpr (Fused) {
            real = __builtin_fmaf(-a_imag, b_imag, a_real * b_real);
            imag = __builtin_fmaf(a_imag, b_real, a_real * b_imag);
        } else {
            real = a_real * b_real - a_imag * b_imag;
            imag = a_real * b_imag + a_imag * b_real;
        }
    }

    static void multiply_add(float a_real, float a_imag, float b_real, float b_imag, float& real,
                             float& imag) {
        if constexpr (Fused) {
            real = __builtin_fmaf(-a_imag, b_imag, __builtin_fmaf(a_real, b_real, real));
            imag = __builtin_fmaf(a_imag, b_real, __builtin_fmaf(a_real, b_imag, imag));
        } else {
            real += a_real * b_real - a_imag * b_imag;
            imag += a_real * b_imag + a_imag * b_real;
        }
    }
};

template <bool Fused>
struct EnginePlainKernels {
    using Arithmetic = EngineArithmetic<Fused>;

    /// C = A B for row-major matrices of matching shapes; each element is summed from zero over
    /// increasing k.
    static void matmul(DenseComplexSplitMatrixView<const float> A,
                       DenseComplexSplitMatrixView<const float> B,
                       DenseComplexSplitMatrixView<float> C) {
        for (std::uint64_t i = 0; i < C.rows; ++i) {
            float* const real = C.real + i * C.cols;
            float* const imag = C.imag + i * C.cols;
            for (std::uint64_t j = 0; j < C.cols; ++j) {
                real[j] = imag[j] = 0;
            }
            for (std::uint64_t k = 0; k < A.cols; ++k) {
                const float a_real = A.real[i * A.cols + k];
                const float a_imag = A.imag[i * A.cols + k];
                for (std::uint64_t j = 0; j < C.cols; ++j) {
                    Arithmetic::multiply_add(a_real, a_imag, B.real[k * B.cols + j],
                                             B.imag[k * B.cols + j], real[j], imag[j]);
                }
            }
        }
    }

    /// Ones on the diagonal of a square matrix, zeros elsewhere.
    static void identity(DenseComplexSplitMatrixView<float> C) {
        for (std::uint64_t index = 0; index < C.rows * C.cols; ++index) {
            C.real[index] = C.imag[index] = 0;
        }
        for (std::uint64_t i = 0; i < C.rows; ++i) {
            C.real[i * C.cols + i] = 1;
        }
    }

    /// One element of a matrix-vector product: a row times a vector of `count` elements, both
    /// interleaved. Each product is rounded by itself, then they are added in order, from zero.
    static void multiply_row(const float* row, const float* vector, std::uint64_t count,
                             float* result) {
        float real = 0;
        float imag = 0;
        for (std::uint64_t index = 0; index < 2 * count; index += 2) {
            float product_real;
            float product_imag;
            Arithmetic::multiply(row[index], row[index + 1], vector[index], vector[index + 1],
                                 product_real, product_imag);
            real += product_real;
            imag += product_imag;
        }
        result[0] = real;
        result[1] = imag;
    }
};

} // namespace

} // namespace Tessaline
