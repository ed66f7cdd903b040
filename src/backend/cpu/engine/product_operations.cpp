// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine/operations.h"
#include "backend/cpu/engine/planes.h"
#include "backend/cpu/numbers/power_by_squaring.h"
#include "backend/cpu/steps/cpu_chunks.h"

#include <stdexcept>

namespace Tessaline::SimdOperations {

namespace {

/// Multiplications of a product; where there is nothing to multiply, zeros are still written.
std::uint64_t matmul_work(Index rows, Index inner, Index columns) {
    return inner == 0 ? work_of(rows, columns) : work_of(rows, inner, columns);
}

template <typename Input, typename Output>
bool multiplies(const Input& A, const Input& B, const Output& C) {
    return A.cols == B.rows && C.rows == A.rows && C.cols == B.cols;
}

template <typename Input, typename Output>
void multiply(void (*kernel)(Input, Input, Output, Index, Index), Input A, Input B, Output C) {
    for_chunks(
        C.rows, matmul_work(C.rows, A.cols, C.cols),
        [=](Index begin, Index end) { kernel(A, B, C, begin, end); }, least_rows_of_product);
}

template <typename Matrix, typename Input, typename Output>
void require_transforming(const Matrix& A, const Input& x, const Output& out) {
    if (A.cols != x.size || A.rows != out.size) {
        throw std::invalid_argument("SimdEngine::matvec - incompatible shapes");
    }
}

template <typename Form>
void transform(const ComplexKernels<Form>& kernels, typename Form::MatrixInput A,
               typename Form::VectorInput x, typename Form::VectorOutput out) {
    for_chunks(A.rows, work_of(A.rows, A.cols),
               [&](Index begin, Index end) { kernels.row_products(A, x, out, begin, end); });
}

/// An outer product is the Kronecker product of a column and a row.
template <typename Form>
void fill_kron(const ComplexKernels<Form>& kernels, typename Form::MatrixInput A,
               typename Form::MatrixInput B, typename Form::MatrixOutput out) {
    for_chunks(out.rows, work_of(out.rows, out.cols),
               [&](Index begin, Index end) { kernels.kron(A, B, out, begin, end); });
}

/// A to a power above 1.
void raise(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out, unsigned exponent) {
    SplitScratch accumulated(A.rows, A.cols);
    SplitScratch base(A.rows, A.cols);
    SplitScratch spare(A.rows, A.cols);
    identity(kernels, accumulated.view());
    copy_matrix(kernels, A, base.view());
    const SplitMatrixOutput power = power_by_squaring(
        exponent, accumulated.view(), base.view(), spare.view(),
        [&kernels](SplitMatrixOutput left, SplitMatrixOutput right, SplitMatrixOutput product) {
            multiply(kernels.split.matmul, as_input(left), as_input(right), product);
        });
    copy_matrix(kernels, as_input(power), out);
}

} // namespace

void matmul(const Table& kernels, RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C) {
    if (!multiplies(A, B, C) || !is_row_major(A) || !is_row_major(B) || !is_row_major(C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes or layout");
    }
    multiply(kernels.matmul, A, B, C);
}

void matmul(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B, SplitMatrixOutput C) {
    if (!multiplies(A, B, C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes");
    }
    const RowMajorInput a(kernels, A);
    const RowMajorInput b(kernels, B);
    RowMajorResult c(kernels, C);
    multiply(kernels.split.matmul, a.view(), b.view(), c.view());
    c.finish();
}

void matmul(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixInput B,
            InterleavedMatrixOutput C) {
    if (!multiplies(A, B, C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes");
    }
    multiply(kernels.interleaved.matmul, A, B, C);
}

void matvec(const Table& kernels, SplitMatrixInput A, SplitInput x, SplitOutput out) {
    require_transforming(A, x, out);
    transform(kernels.split, RowMajorInput(kernels, A).view(), x, out);
}

void matvec(const Table& kernels, InterleavedMatrixInput A, InterleavedInput x,
            InterleavedOutput out) {
    require_transforming(A, x, out);
    transform(kernels.interleaved, A, x, out);
}

void kroneckerprod(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B,
                   SplitMatrixOutput out) {
    const RowMajorInput a(kernels, A);
    const RowMajorInput b(kernels, B);
    RowMajorResult result(kernels, out);
    fill_kron(kernels.split, a.view(), b.view(), result.view());
    result.finish();
}

void kroneckerprod(const Table& kernels, InterleavedMatrixInput A, InterleavedMatrixInput B,
                   InterleavedMatrixOutput out) {
    fill_kron(kernels.interleaved, A, B, out);
}

void outerprod(const Table& kernels, SplitInput a, SplitInput b, SplitMatrixOutput out) {
    RowMajorResult result(kernels, out);
    fill_kron(kernels.split, {a.real, a.imag, a.size, 1, DataMatrixLayout::row_major},
              {b.real, b.imag, 1, b.size, DataMatrixLayout::row_major}, result.view());
    result.finish();
}

void outerprod(const Table& kernels, InterleavedInput a, InterleavedInput b,
               InterleavedMatrixOutput out) {
    fill_kron(kernels.interleaved, {a.data, a.size, 1, DataMatrixLayout::row_major},
              {b.data, 1, b.size, DataMatrixLayout::row_major}, out);
}

void innerprod(const Table& kernels, SplitInput a, SplitInput b, ComplexScalarView<float> out) {
    kernels.split.inner(a, b, out);
}

void innerprod(const Table& kernels, InterleavedInput a, InterleavedInput b,
               ComplexScalarView<float> out) {
    kernels.interleaved.inner(a, b, out);
}

void matrix_power(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out,
                  unsigned exponent) {
    if (A.rows != A.cols || out.rows != out.cols || A.rows != out.rows) {
        throw std::invalid_argument("SimdEngine::matrix_power - incompatible shapes");
    }
    if (exponent == 0) {
        identity(kernels, out);
    } else if (exponent == 1) {
        copy_matrix(kernels, A, out);
    } else {
        raise(kernels, A, out, exponent);
    }
}

} // namespace Tessaline::SimdOperations
