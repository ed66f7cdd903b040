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
// An operation on operands that may have several forms is a template on the form; in either complex
// form it gives the same bits. Interleaved matrices are row-major, but for relayout and the
// solvers.

#include "backend/cpu/engine/forms.h"
#include "tessaline/storage/host_eigen_vals.h"

namespace Tessaline::SimdOperations {

// Elementwise.

/// The principal square root, by the library.
template <typename Form>
void sqrt(const Table& kernels, VectorInput<Form> a, VectorOutput<Form> out);
template <typename Form>
void conj(const Table& kernels, VectorOutput<Form> a);
/// For binary16 too, rounded once.
template <typename Form>
void add(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out);
template <typename Form>
void sub(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out);
/// Without recovery of infinities, as all complex products here.
template <typename Form>
void mul(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b, VectorOutput<Form> out);
template <typename Form>
void scale(const Table& kernels, VectorInput<Form> a, ScalarInput<Form> factor,
           VectorOutput<Form> out);
/// Multiplies by the inverse of the divisor, which is computed once and unscaled. Complex only.
template <typename Form>
void divide(const Table& kernels, VectorInput<Form> a, ScalarInput<Form> divisor,
            VectorOutput<Form> out);

// Products. Shapes that do not fit raise std::invalid_argument where a shape is checked.

/// Shapes are checked, and that all three matrices are row-major where they are real.
template <typename Form>
void matmul(const Table& kernels, MatrixInput<Form> A, MatrixInput<Form> B, MatrixOutput<Form> C);
/// Shapes are checked.
template <typename Form>
void matvec(const Table& kernels, MatrixInput<Form> A, VectorInput<Form> x, VectorOutput<Form> out);
template <typename Form>
void kroneckerprod(const Table& kernels, MatrixInput<Form> A, MatrixInput<Form> B,
                   MatrixOutput<Form> out);
template <typename Form>
void outerprod(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b,
               MatrixOutput<Form> out);
/// The sum of conj(a) b.
template <typename Form>
void innerprod(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b,
               ScalarOutput<Form> out);
/// A to a power, by squaring; exponents 0 and 1 give the identity and a copy without a product.
/// Shapes are checked.
void matrix_power(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out,
                  unsigned exponent);

// Positions.

/// Shapes are checked.
template <typename Form>
void transpose(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out);
/// Shapes are checked.
template <typename Form>
void adjoint(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out);
/// Traces out the first factor of a product space: the result has the order of the second. Shapes
/// are checked, and that both matrices are row-major.
template <typename Form>
void trace_out_left(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out);
/// Traces out the second factor. Shapes are checked, and that both matrices are row-major.
template <typename Form>
void trace_out_right(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out);
/// Raises std::invalid_argument for a matrix that is not square.
template <typename Form>
void identity(const Table& kernels, MatrixOutput<Form> out);
/// Copies between element orders. Shapes are checked.
void relayout(const Table& kernels, InterleavedMatrixInput from, InterleavedMatrixOutput to);

// Reductions, serial.

template <typename Form>
void sum(const Table& kernels, VectorInput<Form> a, ScalarOutput<Form> out);
/// The sum of the diagonal, by eight lanes on either engine.
template <typename Form>
void trace(const Table& kernels, MatrixInput<Form> A, ScalarOutput<Form> out);
/// The Euclidean norm, with imaginary part 0. The squares may overflow or underflow.
template <typename Form>
void norm(const Table& kernels, VectorInput<Form> a, ScalarOutput<Form> out);
/// 1 where the rows are orthonormal within tolerances, as an empty matrix's are; else 0.
void is_unitary(const Table& kernels, SplitMatrixInput A, RealScalarView<int> out);
/// 1 where sizes agree and all components within tolerances; else 0.
template <typename Form>
void vector_equal(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b,
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
