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

/// An outer product is the Kronecker product of a column and a row.
template <typename Form>
void fill_kron(const Table& kernels, MatrixInput<Form> A, MatrixInput<Form> B,
               MatrixOutput<Form> out) {
    const auto fill = kernels_of<Form>(kernels).kron;
    RowMajorResult<Form> result(kernels, out);
    for_chunks(out.rows, work_of(out.rows, out.cols),
               [&](Index begin, Index end) { fill(A, B, result.view(), begin, end); });
    result.finish();
}

SplitMatrixInput as_matrix(SplitInput vector, Index rows, Index cols) {
    return {vector.real, vector.imag, rows, cols, DataMatrixLayout::row_major};
}
InterleavedMatrixInput as_matrix(InterleavedInput vector, Index rows, Index cols) {
    return {vector.data, rows, cols, DataMatrixLayout::row_major};
}

/// A to a power above 1.
void raise(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out, unsigned exponent) {
    SplitScratch accumulated(A.rows, A.cols);
    SplitScratch base(A.rows, A.cols);
    SplitScratch spare(A.rows, A.cols);
    identity<SplitForm>(kernels, accumulated.view());
    copy_matrix(kernels, A, base.view());
    const SplitMatrixOutput power = power_by_squaring(
        exponent, accumulated.view(), base.view(), spare.view(),
        [&kernels](SplitMatrixOutput left, SplitMatrixOutput right, SplitMatrixOutput product) {
            multiply(kernels.split.matmul, as_input(left), as_input(right), product);
        });
    copy_matrix(kernels, as_input(power), out);
}

} // namespace

template <typename Form>
void matmul(const Table& kernels, MatrixInput<Form> A, MatrixInput<Form> B, MatrixOutput<Form> C) {
    if constexpr (std::is_same_v<Form, RealForm>) {
        if (!multiplies(A, B, C) || !is_row_major(A) || !is_row_major(B) || !is_row_major(C)) {
            throw std::invalid_argument("SimdEngine::matmul - incompatible shapes or layout");
        }
    } else if (!multiplies(A, B, C)) {
        throw std::invalid_argument("SimdEngine::matmul - incompatible shapes");
    }
    const RowMajorInput<Form> a(kernels, A);
    const RowMajorInput<Form> b(kernels, B);
    RowMajorResult<Form> c(kernels, C);
    multiply(kernels_of<Form>(kernels).matmul, a.view(), b.view(), c.view());
    c.finish();
}

template <typename Form>
void matvec(const Table& kernels, MatrixInput<Form> A, VectorInput<Form> x,
            VectorOutput<Form> out) {
    if (A.cols != x.size || A.rows != out.size) {
        throw std::invalid_argument("SimdEngine::matvec - incompatible shapes");
    }
    const RowMajorInput<Form> a(kernels, A);
    for_chunks(A.rows, work_of(A.rows, A.cols), [&](Index begin, Index end) {
        kernels_of<Form>(kernels).row_products(a.view(), x, out, begin, end);
    });
}

template <typename Form>
void kroneckerprod(const Table& kernels, MatrixInput<Form> A, MatrixInput<Form> B,
                   MatrixOutput<Form> out) {
    fill_kron<Form>(kernels, RowMajorInput<Form>(kernels, A).view(),
                    RowMajorInput<Form>(kernels, B).view(), out);
}

template <typename Form>
void outerprod(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b,
               MatrixOutput<Form> out) {
    fill_kron<Form>(kernels, as_matrix(a, a.size, 1), as_matrix(b, 1, b.size), out);
}

template <typename Form>
void innerprod(const Table& kernels, VectorInput<Form> a, VectorInput<Form> b,
               ScalarOutput<Form> out) {
    kernels_of<Form>(kernels).inner(a, b, out);
}

void matrix_power(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out,
                  unsigned exponent) {
    if (A.rows != A.cols || out.rows != out.cols || A.rows != out.rows) {
        throw std::invalid_argument("SimdEngine::matrix_power - incompatible shapes");
    }
    if (exponent == 0) {
        identity<SplitForm>(kernels, out);
    } else if (exponent == 1) {
        copy_matrix(kernels, A, out);
    } else {
        raise(kernels, A, out, exponent);
    }
}

TESSALINE_IN_EITHER_FORM(matmul)
TESSALINE_IN_EITHER_FORM(matvec)
TESSALINE_IN_EITHER_FORM(kroneckerprod)
TESSALINE_IN_EITHER_FORM(outerprod)
TESSALINE_IN_EITHER_FORM(innerprod)
TESSALINE_IN_FORM(RealForm, matmul)

} // namespace Tessaline::SimdOperations
