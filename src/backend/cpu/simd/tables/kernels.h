// SPDX-License-Identifier: Apache-2.0
#pragma once

// The functions that an engine has compiled for its instruction set. They are serial, check nothing
// and allocate nothing but a thread's packing memory (scratch_memory.h): the engine around
// them (x86_simd_engine.h) cuts the work and knows the shapes. Included by units for every
// instruction set, so nothing here is more than a declaration.
//
// Every NaN that arithmetic stores is the positive quiet one.
//
// Elements of matrices lie in row-major order, whatever the views say. A kernel with `begin` and
// `end` computes those rows of its result only.

#include "backend/cpu/simd/tables/elimination_kernels.h"
#include "tessaline/storage/kernel_views.h"

#include <complex>

namespace Tessaline::SimdKernels {

using RealInput = DenseRealVectorView<const float>;
using RealOutput = DenseRealVectorView<float>;
using SplitInput = DenseComplexSplitVectorView<const float>;
using SplitOutput = DenseComplexSplitVectorView<float>;
using RealMatrixInput = DenseRealMatrixView<const float>;
using RealMatrixOutput = DenseRealMatrixView<float>;
using SplitMatrixInput = DenseComplexSplitMatrixView<const float>;
using SplitMatrixOutput = DenseComplexSplitMatrixView<float>;
using Element = std::complex<float>;
using InterleavedInput = DenseComplexIntlvVectorView<const Element>;
using InterleavedOutput = DenseComplexIntlvVectorView<Element>;
using InterleavedMatrixInput = DenseComplexIntlvMatrixView<const Element>;
using InterleavedMatrixOutput = DenseComplexIntlvMatrixView<Element>;

/// How complex operands lie: in two planes, or element by element.
struct SplitForm {
    using VectorInput = SplitInput;
    using VectorOutput = SplitOutput;
    using MatrixInput = SplitMatrixInput;
    using MatrixOutput = SplitMatrixOutput;
    using ScalarInput = ComplexScalarView<const float>;
    using ScalarOutput = ComplexScalarView<float>;
};
struct InterleavedForm {
    using VectorInput = InterleavedInput;
    using VectorOutput = InterleavedOutput;
    using MatrixInput = InterleavedMatrixInput;
    using MatrixOutput = InterleavedMatrixOutput;
    using ScalarInput = ComplexScalarView<const float>;
    using ScalarOutput = ComplexScalarView<float>;
};

/// Kernels of complex operands, which give the same bits in either form.
template <typename Form>
struct ComplexKernels {
    using Input = typename Form::VectorInput;
    using Output = typename Form::VectorOutput;
    using MatrixInput = typename Form::MatrixInput;
    using MatrixOutput = typename Form::MatrixOutput;

    // Elementwise, of the size of the result, which may lie where an operand does.
    void (*multiply)(Input, Input, Output);
    /// The factor is the second operand of each product.
    void (*scale)(Input, ComplexScalarView<const float> factor, Output);

    /// Each part in the order of the real `sum`.
    void (*sum)(Input, ComplexScalarView<float> out);
    /// The sum of conj(a) b, in the same order.
    void (*inner)(Input a, Input b, ComplexScalarView<float> out);

    /// C = A B. Each element is summed in increasing inner index, from zero.
    void (*matmul)(MatrixInput A, MatrixInput B, MatrixOutput C, Index begin, Index end);
    /// The sums over increasing k of A[i][k] x[k], for the rows i of [begin, end).
    void (*row_products)(MatrixInput A, Input x, Output out, Index begin, Index end);
    /// Element (i1 r + i2, j1 c + j2) is A[i1][j1] B[i2][j2], for B of r rows and c columns.
    void (*kron)(MatrixInput A, MatrixInput B, MatrixOutput out, Index begin, Index end);

    // For A of order k m and a result of order m: the sums over increasing t below k of
    // A[t m + i][t m + j] and of A[i k + t][j k + t].
    void (*partial_trace_left)(MatrixInput A, MatrixOutput out, Index begin, Index end);
    void (*partial_trace_right)(MatrixInput A, MatrixOutput out, Index begin, Index end);
};

struct Table {
    ComplexKernels<SplitForm> split;
    ComplexKernels<InterleavedForm> interleaved;

    // Elementwise, of the size of the result, which may lie where an operand does.
    void (*add)(RealInput, RealInput, RealOutput);
    void (*subtract)(RealInput, RealInput, RealOutput);
    void (*multiply)(RealInput, RealInput, RealOutput);
    void (*scale)(RealInput, float factor, RealOutput);
    void (*negate)(RealInput, RealOutput); ///< of a NaN the sign as well

    /// Lanes are summed over whole vectors and then among each other, halves first; what is left of
    /// the elements is added to that in order.
    float (*sum)(RealInput);

    /// C = A B. Each element is summed in increasing inner index, from zero.
    void (*matmul)(RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C, Index begin,
                   Index end);

    /// The sums over increasing k of conj(x[k]) A[i][k], for the rows i of [begin, end).
    void (*conjugate_row_products)(SplitMatrixInput A, SplitInput x, SplitOutput out, Index begin,
                                   Index end);

    // Solvers, whose elements are interleaved; see engine_lu.h and engine_power_methods.h.
    EngineEliminationKernels elimination;
    void (*solve)(LuDecompView<const long, const Element> lu, SplitOutput b);
    void (*logdet)(LuDecompView<const long, const Element> lu, ComplexScalarView<float> out);
    void (*principal_eigenvect)(DenseComplexIntlvMatrixView<const Element> A,
                                DenseComplexIntlvVectorView<Element> vector);
};

extern const Table avx256_table;
extern const Table avx512_table;

} // namespace Tessaline::SimdKernels
