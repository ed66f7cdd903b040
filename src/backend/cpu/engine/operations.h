// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the SIMD engine does on views, given the kernels of an instruction set: checks of shapes,
// the cut into parallel chunks, temporaries.
//
// Parallel over rows or elements as the thread's current CPU context says; reductions are serial.
// Chunks write disjoint parts of the result and each element is computed in one fixed order, so the
// number of threads changes no bit. Where the engine fuses, it fuses inside products only; sums of
// squares and comparisons are the same on both engines. Operands of an elementwise operation may be
// its result as well; results of the others overlap no operand. Sizes without a stated error agree.
//
// Most operations on split operands take interleaved ones too and give the same bits; such matrices
// are row-major, but for relayout and the solvers.

#include "backend/cpu/simd/tables/kernels.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/low_precision.h"

namespace Tessaline::SimdOperations {

using namespace SimdKernels;
using Float16Input = DenseRealVectorView<const Float16>;
using Float16Output = DenseRealVectorView<Float16>;

// Elementwise.

/// The principal square root, by the library.
void sqrt(const Table& kernels, SplitInput a, SplitOutput out);
void sqrt(const Table& kernels, InterleavedInput a, InterleavedOutput out);
void conj(const Table& kernels, SplitOutput a);
void conj(const Table& kernels, InterleavedOutput a);
void add(const Table& kernels, RealInput a, RealInput b, RealOutput out);
/// Rounded once to binary16.
void add(const Table& kernels, Float16Input a, Float16Input b, Float16Output out);
void add(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out);
void add(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out);
void sub(const Table& kernels, RealInput a, RealInput b, RealOutput out);
void sub(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out);
void sub(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out);
void mul(const Table& kernels, RealInput a, RealInput b, RealOutput out);
/// Without recovery of infinities, as all complex products here.
void mul(const Table& kernels, SplitInput a, SplitInput b, SplitOutput out);
void mul(const Table& kernels, InterleavedInput a, InterleavedInput b, InterleavedOutput out);
void scale(const Table& kernels, RealInput a, RealScalarView<const float> factor, RealOutput out);
void scale(const Table& kernels, SplitInput a, ComplexScalarView<const float> factor,
           SplitOutput out);
void scale(const Table& kernels, InterleavedInput a, ComplexScalarView<const float> factor,
           InterleavedOutput out);
/// Multiplies by the inverse of the divisor, which is computed once and unscaled.
void divide(const Table& kernels, SplitInput a, ComplexScalarView<const float> divisor,
            SplitOutput out);
void divide(const Table& kernels, InterleavedInput a, ComplexScalarView<const float> divisor,
            InterleavedOutput out);

// Products. Shapes that do not fit raise std::invalid_argument where a shape is checked.

/// Shapes are checked, and that all three matrices are row-major.
void matmul(const Table& kernels, RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C);
/// Shapes are checked.
void matmul(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B, SplitMatrixOutput C);
void matmul(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixInput B,
            InterleavedMatrixOutput C);
/// Shapes are checked.
void matvec(const Table& kernels, SplitMatrixInput A, SplitInput x, SplitOutput out);
void matvec(const Table& kernels, InterleavedMatrixInput A, InterleavedInput x,
            InterleavedOutput out);
void kroneckerprod(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B,
                   SplitMatrixOutput out);
void kroneckerprod(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixInput B,
                   InterleavedMatrixOutput out);
void outerprod(const Table& kernels, SplitInput a, SplitInput b, SplitMatrixOutput out);
void outerprod(const Table& kernels, InterleavedInput a, InterleavedInput b,
               InterleavedMatrixOutput out);
/// The sum of conj(a) b.
void innerprod(const Table& kernels, SplitInput a, SplitInput b, ComplexScalarView<float> out);
void innerprod(const Table& kernels, InterleavedInput a, InterleavedInput b,
               ComplexScalarView<float> out);
/// A to a power, by squaring; exponents 0 and 1 give the identity and a copy without a product.
/// Shapes are checked.
void matrix_power(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out,
                  unsigned exponent);

// Positions.

/// Shapes are checked.
void transpose(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out);
void transpose(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixOutput out);
/// Shapes are checked.
void adjoint(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out);
void adjoint(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixOutput out);
/// Traces out the first factor of a product space: the result has the order of the second. Shapes
/// are checked, and that both matrices are row-major.
void trace_out_left(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out);
void trace_out_left(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixOutput out);
/// Traces out the second factor. Shapes are checked, and that both matrices are row-major.
void trace_out_right(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out);
void trace_out_right(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixOutput out);
/// Raises std::invalid_argument for a matrix that is not square.
void identity(const Table& kernels, SplitMatrixOutput out);
void identity(const Table& kernels, InterleavedMatrixOutput out);
/// Copies between element orders. Shapes are checked.
void relayout(const Table& kernels, InterleavedMatrixInput from, InterleavedMatrixOutput to);

// Reductions, serial.

void sum(const Table& kernels, RealInput a, RealScalarView<float> out);
void sum(const Table& kernels, SplitInput a, ComplexScalarView<float> out);
void sum(const Table& kernels, InterleavedInput a, ComplexScalarView<float> out);
/// The sum of the diagonal, by eight lanes on either engine.
void trace(const Table& kernels, SplitMatrixInput A, ComplexScalarView<float> out);
void trace(const Table& kernels, InterleavedMatrixInput A, ComplexScalarView<float> out);
/// The Euclidean norm, with imaginary part 0. The squares may overflow or underflow.
void norm(const Table& kernels, SplitInput a, ComplexScalarView<float> out);
void norm(const Table& kernels, InterleavedInput a, ComplexScalarView<float> out);
/// 1 where the rows are orthonormal within tolerances, as an empty matrix's are; else 0.
void is_unitary(const Table& kernels, SplitMatrixInput A, RealScalarView<int> out);
/// 1 where sizes agree and all components within tolerances; else 0.
void vector_equal(const Table& kernels, SplitInput a, SplitInput b, RealScalarView<int> out);
void vector_equal(const Table& kernels, InterleavedInput a, InterleavedInput b,
                  RealScalarView<int> out);

// Solvers, serial. Raise SolverError for what cannot be solved.

/// Factors a column-major matrix in place; see EngineLu::lu_decomp.
void lu_decomp(const Table& kernels, LuDecompView<long, Element> lu);
/// Solves in place of the right-hand side, whose size is checked; see EngineLu::solve.
void solve(const Table& kernels, LuDecompView<const long, const Element> lu, SplitOutput b);
/// The logarithm of the determinant; see EngineLu::logdet.
void logdet(const Table& kernels, LuDecompView<const long, const Element> lu,
            ComplexScalarView<float> out);
/// All eigenvalues and right eigenvectors; see CpuFallback::solve_complex_eigen.
void eigen(const Table& kernels, InterleavedMatrixInput A, HostEigenVals<Element, Element>& result);
/// The last iterate of a power iteration from the vector of ones, the products of each row summed
/// as `sum` does; see EnginePowerMethods::principal_eigenvect.
void principal_eigenvect(const Table& kernels, InterleavedMatrixInput A, InterleavedOutput vector);

} // namespace Tessaline::SimdOperations
