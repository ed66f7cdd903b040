// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/engine/operations.h"
#include "backend/cpu/engine/planes.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"
#include "backend/cpu/steps/cpu_chunks.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline::SimdOperations {

namespace {

/// The matrix whose row-major elements are the elements of `matrix` as they lie.
template <typename T>
DenseRealMatrixView<T> as_lines(DenseRealMatrixView<T> matrix) {
    if (is_row_major(matrix)) {
        return matrix;
    }
    return {matrix.data, matrix.cols, matrix.rows, DataMatrixLayout::row_major};
}

/// Transposes the lines of a plane from row `begin` of the result to row `end`.
void transpose_lines(RealMatrixInput A, RealMatrixOutput out, Index begin, Index end,
                     std::uint32_t flipped) {
    const bool past_caches = out.rows * out.cols * sizeof(float) >= least_bytes_past_caches;
    copy_transposed(reinterpret_cast<const std::uint32_t*>(A.data) + begin, A.cols,
                    reinterpret_cast<std::uint32_t*>(out.data) + begin * out.cols, out.cols, A.rows,
                    end - begin, flipped, past_caches);
}

/// Transposes the lines of two planes; `negate` changes the sign of the imaginary one.
void transpose_lines(SplitMatrixInput A, SplitMatrixOutput out, bool negate) {
    constexpr std::uint32_t sign = std::uint32_t{1} << 31U;
    const RealMatrixOutput lines = as_lines(real_plane(out));
    for_chunks(lines.rows, work_of(lines.rows, lines.cols), [=](Index begin, Index end) {
        transpose_lines(as_lines(real_plane(A)), as_lines(real_plane(out)), begin, end, 0);
        transpose_lines(as_lines(imag_plane(A)), as_lines(imag_plane(out)), begin, end,
                        negate ? sign : 0);
    });
}

/// Copies two planes as they lie; `negate` changes the sign of the imaginary one.
void copy_lines(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out, bool negate) {
    const Index count = A.rows * A.cols;
    for_chunks(count, count, [=, &kernels](Index begin, Index end) {
        std::copy(A.real + begin, A.real + end, out.real + begin);
        if (negate) {
            kernels.negate({A.imag + begin, end - begin}, {out.imag + begin, end - begin});
        } else {
            std::copy(A.imag + begin, A.imag + end, out.imag + begin);
        }
    });
}

/// Transposes a matrix; `negate` changes the sign of imaginary parts.
void turn(const Table& kernels, SplitMatrixInput A, SplitMatrixOutput out, bool negate) {
    if (A.layout == out.layout) {
        transpose_lines(A, out, negate);
    } else {
        copy_lines(kernels, A, out, negate);
    }
}
void turn(const Table&, InterleavedMatrixInput A, InterleavedMatrixOutput out, bool negate) {
    const bool past_caches = out.rows * out.cols * sizeof(Element) >= least_bytes_past_caches;
    const auto* const from = as_bits(A.data);
    auto* const to = as_bits(out.data);
    const BitsOf<Element> flipped = negate ? imaginary_sign<Element>() : 0;
    for_chunks(out.rows, work_of(out.rows, out.cols), [=](Index begin, Index end) {
        copy_transposed(from + begin, A.cols, to + begin * out.cols, out.cols, A.rows, end - begin,
                        flipped, past_caches);
    });
}

template <typename Input, typename Output>
void require_transposed(const Input& A, const Output& out, const char* message) {
    if (A.rows != out.cols || A.cols != out.rows) {
        throw std::invalid_argument(message);
    }
}

// Zeros from element `begin` to element `end`.
void clear(SplitMatrixOutput out, Index begin, Index end) {
    std::fill(out.real + begin, out.real + end, 0.0F);
    std::fill(out.imag + begin, out.imag + end, 0.0F);
}
void clear(InterleavedMatrixOutput out, Index begin, Index end) {
    std::fill(out.data + begin, out.data + end, Element());
}

/// Traces out the factor of a product space that `kernel` does.
template <typename Input, typename Output>
void trace_out(void (*kernel)(Input, Output, Index, Index), Input A, Output out,
               const char* message) {
    if (A.rows != A.cols || out.rows != out.cols || out.rows == 0 || A.rows % out.rows != 0 ||
        !is_row_major(A) || !is_row_major(out)) {
        throw std::invalid_argument(message);
    }
    for_chunks(out.rows, work_of(A.rows, out.rows),
               [=](Index begin, Index end) { kernel(A, out, begin, end); });
}

} // namespace

void copy_matrix(const Table& kernels, SplitMatrixInput from, SplitMatrixOutput to) {
    if (from.layout == to.layout) {
        copy_lines(kernels, from, to, false);
    } else {
        transpose_lines(from, to, false);
    }
}

template <typename Form>
void transpose(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out) {
    require_transposed(A, out, "SimdEngine::transpose - incompatible shapes");
    turn(kernels, A, out, false);
}

template <typename Form>
void adjoint(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out) {
    require_transposed(A, out, "SimdEngine::adjoint - incompatible shapes");
    turn(kernels, A, out, true);
}

template <typename Form>
void trace_out_left(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out) {
    trace_out(kernels_of<Form>(kernels).partial_trace_left, A, out,
              "SimdEngine::trace_out_left - incompatible shapes or layout");
}

template <typename Form>
void trace_out_right(const Table& kernels, MatrixInput<Form> A, MatrixOutput<Form> out) {
    trace_out(kernels_of<Form>(kernels).partial_trace_right, A, out,
              "SimdEngine::trace_out_right - incompatible shapes or layout");
}

template <typename Form>
void identity(const Table&, MatrixOutput<Form> out) {
    if (out.rows != out.cols) {
        throw std::invalid_argument("SimdEngine::identity - non-square matrix");
    }
    const Index order = out.rows;
    for_chunks(order, order, [=](Index begin, Index end) {
        clear(out, begin * order, end * order);
        for (Index i = begin; i < end; ++i) {
            set_element(out, i * order + i, 1);
        }
    });
}

void relayout(const Table&, InterleavedMatrixInput from, InterleavedMatrixOutput to) {
    if (from.rows != to.rows || from.cols != to.cols) {
        throw std::invalid_argument("SimdEngine::relayout - incompatible shapes");
    }
    if (from.layout == to.layout) {
        std::copy(from.data, from.data + from.rows * from.cols, to.data);
        return;
    }
    const Index lines = is_row_major(to) ? to.rows : to.cols;
    const Index length = is_row_major(to) ? to.cols : to.rows;
    for (Index i = 0; i < lines; ++i) {
        for (Index j = 0; j < length; ++j) {
            to.data[i * length + j] = from.data[j * lines + i];
        }
    }
}

TESSALINE_IN_EITHER_FORM(transpose)
TESSALINE_IN_EITHER_FORM(adjoint)
TESSALINE_IN_EITHER_FORM(trace_out_left)
TESSALINE_IN_EITHER_FORM(trace_out_right)
TESSALINE_IN_EITHER_FORM(identity)

} // namespace Tessaline::SimdOperations
