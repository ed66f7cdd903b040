// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_parallel_chunks.h"
#include "backend/cpu/simd/simd_operations.h"
#include "backend/cpu/simd/simd_planes.h"

#include <stdexcept>
#include <utility>

namespace Tessaline::SimdOperations {

namespace {

/// Multiplications of a product; where there is nothing to multiply, zeros are still written.
std::uint64_t matmul_work(Index rows, Index inner, Index columns) {
    return inner == 0 ? work_product(rows, columns) : work_product(rows, inner, columns);
}

template <typename Input, typename Output>
bool multiplies(const Input& A, const Input& B, const Output& C) {
    return A.cols == B.rows && C.rows == A.rows && C.cols == B.cols;
}

template <typename Input, typename Output>
void multiply(void (*kernel)(Input, Input, Output, Index, Index), Input A, Input B, Output C) {
    parallel_chunks(C.rows, matmul_work(C.rows, A.cols, C.cols),
                    [=](Index begin, Index end) { kernel(A, B, C, begin, end); });
}

/// A to a power above 1, by squaring. All three matrices are row-major.
void raise(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out, unsigned exponent) {
    SplitScratch result(A.rows, A.cols);
    SplitScratch base(A.rows, A.cols);
    SplitScratch next(A.rows, A.cols);
    const auto multiply_by_base = [&](SplitScratch& factor) {
        multiply(kernels.matmul_split, as_input(factor.view()), as_input(base.view()), next.view());
        std::swap(factor, next);
    };
    identity(kernels, result.view());
    copy_matrix(kernels, A, base.view());
    while (true) {
        if (exponent % 2 != 0) {
            multiply_by_base(result);
        }
        exponent /= 2;
        if (exponent == 0) {
            break;
        }
        multiply_by_base(base);
    }
    copy_matrix(kernels, as_input(result.view()), out);
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
    parallel_chunks(A.rows, work_product(A.rows, A.cols), [&](Index begin, Index end) {
        kernels.row_products(a.view(), x, out, begin, end);
    });
}

void kroneckerprod(const Table& kernels, SplitMatrixInput A, SplitMatrixInput B,
                   SplitMatrixOutput out) {
    const RowMajorInput a(kernels, A);
    const RowMajorInput b(kernels, B);
    RowMajorResult result(kernels, out);
    parallel_chunks(out.rows, work_product(out.rows, out.cols), [&](Index begin, Index end) {
        kernels.kron(a.view(), b.view(), result.view(), begin, end);
    });
    result.finish();
}

void outerprod(const Table& kernels, SplitInput a, SplitInput b, SplitMatrixOutput out) {
    RowMajorResult result(kernels, out);
    parallel_chunks(out.rows, work_product(out.rows, out.cols), [&](Index begin, Index end) {
        kernels.outer(a, b, result.view(), begin, end);
    });
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
