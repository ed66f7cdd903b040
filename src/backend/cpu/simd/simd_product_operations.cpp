// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_chunks.h"
#include "backend/cpu/power_by_squaring.h"
#include "backend/cpu/simd/simd_operations.h"
#include "backend/cpu/simd/simd_planes.h"

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
    for_chunks(C.rows, matmul_work(C.rows, A.cols, C.cols),
               [=](Index begin, Index end) { kernel(A, B, C, begin, end); });
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
            multiply(kernels.matmul_split, as_input(left), as_input(right), product);
        });
    copy_matrix(kernels, as_input(power), out);
}

} // namespace

void matmul(const Table& kernels, RealMatrixInput A, RealMatrixInput B, RealMatrixOutput C) {
    if (!multiplies(A, B, C) || !is_row_major(A) || !is_row_major(B) || !is_row_major(C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes or layout");
    }
    multiply(kernels.matmul_real, A, B, C);
}

void matmul(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B, SplitMatrixOutput C) {
    if (!multiplies(A, B, C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes");
    }
    const RowMajorInput a(kernels, A);
    const RowMajorInput b(kernels, B);
    RowMajorResult c(kernels, C);
    multiply(kernels.matmul_split, a.view(), b.view(), c.view());
    c.finish();
}

void matvec(const Table& kernels, SplitMatrixInput A, SplitInput x, SplitOutput out) {
    if (A.cols != x.size || A.rows != out.size) {
        throw std::invalid_argument("SimdEngine::matvec - incompatible shapes");
    }
    const RowMajorInput a(kernels, A);
    for_chunks(A.rows, work_of(A.rows, A.cols),
               [&](Index begin, Index end) { kernels.row_products(a.view(), x, out, begin, end); });
}

void kroneckerprod(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B,
                   SplitMatrixOutput out) {
    const RowMajorInput a(kernels, A);
    const RowMajorInput b(kernels, B);
    RowMajorResult result(kernels, out);
    for_chunks(out.rows, work_of(out.rows, out.cols), [&](Index begin, Index end) {
        kernels.kron(a.view(), b.view(), result.view(), begin, end);
    });
    result.finish();
}

void outerprod(const Table& kernels, SplitInput a, SplitInput b, SplitMatrixOutput out) {
    RowMajorResult result(kernels, out);
    for_chunks(out.rows, work_of(out.rows, out.cols),
               [&](Index begin, Index end) { kernels.outer(a, b, result.view(), begin, end); });
    result.finish();
}

void innerprod(const Table& kernels, SplitInput a, SplitInput b, ComplexScalarView<float> out) {
    kernels.inner(a, b, out);
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
