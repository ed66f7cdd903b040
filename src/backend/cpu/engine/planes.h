// SPDX-License-Identifier: Apache-2.0
#pragma once

// Split matrices as the kernels take them: single planes, in row-major order.

#include "backend/cpu/engine/forms.h"
#include "backend/cpu/simd/plain/scratch_memory.h"

#include <optional>

namespace Tessaline::SimdOperations {

template <typename T>
DenseRealMatrixView<T> real_plane(DenseComplexSplitMatrixView<T> matrix) {
    return {matrix.real, matrix.rows, matrix.cols, matrix.layout};
}
template <typename T>
DenseRealMatrixView<T> imag_plane(DenseComplexSplitMatrixView<T> matrix) {
    return {matrix.imag, matrix.rows, matrix.cols, matrix.layout};
}

template <typename Matrix>
bool is_row_major(const Matrix& matrix) {
    return matrix.layout == DataMatrixLayout::row_major;
}

inline SplitMatrixInput as_input(SplitMatrixOutput matrix) {
    return {matrix.real, matrix.imag, matrix.rows, matrix.cols, matrix.layout};
}

/// Copies elements between matrices of one shape, whatever their orders.
void copy_matrix(const Table& kernels, SplitMatrixInput from, SplitMatrixOutput to);

/// A row-major split matrix in scratch memory.
class SplitScratch {
  public:
    SplitScratch(Index rows, Index cols) : elements_(2 * rows * cols), rows_(rows), cols_(cols) {}

    SplitMatrixOutput view() const {
        return {elements_.data(), elements_.data() + rows_ * cols_, rows_, cols_,
                DataMatrixLayout::row_major};
    }

  private:
    Scratch<float> elements_;
    Index rows_;
    Index cols_;
};

/// An input in row-major order: itself, or a copy of split elements. Others are row-major.
template <typename Form>
class RowMajorInput {
  public:
    RowMajorInput(const Table&, MatrixInput<Form> matrix) : view_(matrix) {}

    MatrixInput<Form> view() const { return view_; }

  private:
    MatrixInput<Form> view_;
};

template <>
class RowMajorInput<SplitForm> {
  public:
    RowMajorInput(const Table& kernels, SplitMatrixInput matrix) : view_(matrix) {
        if (!is_row_major(matrix)) {
            copy_.emplace(matrix.rows, matrix.cols);
            copy_matrix(kernels, matrix, copy_->view());
            view_ = as_input(copy_->view());
        }
    }

    SplitMatrixInput view() const { return view_; }

  private:
    std::optional<SplitScratch> copy_;
    SplitMatrixInput view_;
};

/// A result in row-major order: itself, or a temporary that `finish` copies to it.
template <typename Form>
class RowMajorResult {
  public:
    RowMajorResult(const Table&, MatrixOutput<Form> matrix) : matrix_(matrix) {}

    MatrixOutput<Form> view() { return matrix_; }
    void finish() {}

  private:
    MatrixOutput<Form> matrix_;
};

template <>
class RowMajorResult<SplitForm> {
  public:
    RowMajorResult(const Table& kernels, SplitMatrixOutput matrix)
        : kernels_(kernels),
          matrix_(matrix) {
        if (!is_row_major(matrix)) {
            temporary_.emplace(matrix.rows, matrix.cols);
        }
    }

    SplitMatrixOutput view() { return temporary_ ? temporary_->view() : matrix_; }
    void finish() {
        if (temporary_) {
            copy_matrix(kernels_, as_input(temporary_->view()), matrix_);
        }
    }

  private:
    const Table& kernels_;
    SplitMatrixOutput matrix_;
    std::optional<SplitScratch> temporary_;
};

} // namespace Tessaline::SimdOperations
