// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/structure.h"

#include "backend/cpu/floating/loops.h"
#include "backend/cpu/floating/widened.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// result(i, j) = in(j, i), with the bits `flipped` changed.
template <typename T>
void map_transposed(const MatrixTransposition<T>& operands, BitsOf<T> flipped,
                    const UnfusedTable& kernels) {
    const FloatingMatrix<T>& result = operands.result;
    // Lines of the result are contiguous; those of the input run across them, or along them.
    const bool row_major = result.is_row_major();
    const auto lines = lines_along(result.layout, operands.A.transposed());
    const std::uint64_t line_length = row_major ? result.cols : result.rows;
    const bool past_caches = result.rows * result.cols * sizeof(T) >= least_bytes_past_caches;
    const auto* const from = as_bits(lines.data);
    auto* const to = as_bits(result.data);
    for_chunks(result.rows, work_of(result.rows, result.cols),
               [&](std::uint64_t begin, std::uint64_t end) {
                   // The chunk's lines, and its positions on them.
                   const std::uint64_t first_line = row_major ? begin : 0;
                   const std::uint64_t line_count = row_major ? end - begin : result.cols;
                   const std::uint64_t first = row_major ? 0 : begin;
                   const std::uint64_t count = row_major ? result.cols : end - begin;
                   const BitsOf<T>* source =
                       from + first_line * lines.line_stride + first * lines.stride;
                   BitsOf<T>* target = to + first_line * line_length + first;
                   if (lines.stride != 1) {
                       copy_transposed(source, lines.stride, target, line_length, count, line_count,
                                       flipped, past_caches, kernels);
                       return;
                   }
                   for (std::uint64_t line = 0; line < line_count; ++line) {
                       copy_flipped(source + line * lines.line_stride, target + line * line_length,
                                    count, flipped);
                   }
               });
}

/// The Kronecker product.
template <typename T>
void fill_kron(const FloatingMatrix<const T>& A, const FloatingMatrix<const T>& B,
               const FloatingMatrix<T>& result, const UnfusedTable& table) {
    const auto& kernels = SimdKernels::unfused_kernels<ComputeOf<T>>(table);
    if (!result.is_row_major()) {
        fill_kron(A.transposed(), B.transposed(), result.transposed(), table);
        return;
    }
    const std::uint64_t cols = result.cols;
    const std::uint64_t work = work_of(result.rows, cols);
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        const WidenedRows<T> a(A, table);
        const WidenedRows<T> b(B, table);
        for_chunks(result.rows, work, [&](std::uint64_t begin, std::uint64_t end) {
            kernels.kron({a[0], A.cols}, {b[0], B.cols}, result.data + begin * cols,
                         {A.cols, B.rows, B.cols}, begin, end);
        });
    } else {
        // Row by row, so that what is in compute type stays in the caches.
        for_chunks(result.rows, work, [&](std::uint64_t begin, std::uint64_t end) {
            // One piece of memory: of several, 16 KiB apart, a load would wait for a store whose
            // address ends alike.
            const Scratch<ComputeOf<T>> rows(B.cols + cols + A.cols);
            ComputeOf<T>* const b = rows.data();
            ComputeOf<T>* const products = b + B.cols;
            ComputeOf<T>* const a = products + cols;
            for (std::uint64_t i = begin; i < end; ++i) {
                const std::uint64_t of_b = i % B.rows;
                if (i == begin || of_b == 0) {
                    widen_rows(A, i / B.rows, i / B.rows + 1, a, table);
                }
                if (i == begin || B.rows > 1) {
                    widen_rows(B, of_b, of_b + 1, b, table);
                }
                kernels.kron({a, A.cols}, {b, B.cols}, products, {A.cols, 1, B.cols}, 0, 1);
                store_results(products, result.data + i * cols, cols, table);
            }
        });
    }
}

/// A matrix, its result and the order of the subsystem that is summed over.
template <typename T>
class PartialTrace {
  public:
    PartialTrace(const MatrixMap<T>& operands, const UnfusedTable& kernels)
        : kernels_(kernels),
          A_(operands.A),
          result_(operands.result),
          traced_(result_.rows == 0 ? 0 : A_.rows / result_.rows) {}

    std::uint64_t kept() const { return result_.rows; }
    std::uint64_t traced() const { return traced_; }

    /// result(i, j) = the sum over increasing t below `traced` of
    /// A(i kept_step + t traced_step, j kept_step + t traced_step).
    void fill(std::uint64_t kept_step, std::uint64_t traced_step) const {
        const auto lines = lines_along(result_.layout, A_);
        fill_lines(result_, work_of(result_.rows, result_.cols, traced_),
                   [&](std::uint64_t line, std::uint64_t begin, std::uint64_t end, T* out) {
                       for (; begin < end; begin += traces_at_once, out += traces_at_once) {
                           fill_run({.terms = &lines(line * kept_step, begin * kept_step),
                                     .step = kept_step * lines.stride,
                                     .term_step = traced_step * (lines.line_stride + lines.stride),
                                     .count = std::min(traces_at_once, end - begin)},
                                    out);
                       }
                   });
    }

  private:
    /// Where the terms of some neighbours lie.
    struct Run {
        const T* terms;          ///< the first of the first sum
        std::uint64_t step;      ///< from a sum to its neighbour
        std::uint64_t term_step; ///< from a term to the next of a sum
        std::uint64_t count;     ///< of sums
    };

    void fill_run(const Run& run, T* out) const {
        if (run.step == 1) {
            sum_by_kernel(run, out);
            return;
        }
        const Scratch<ComputeOf<T>> sums(run.count);
        std::fill_n(sums.data(), run.count, ComputeOf<T>{});
        for (std::uint64_t t = 0; t < traced_; ++t) {
            add(sums.data(), run.terms + t * run.term_step, run.step, run.count);
        }
        store_results(sums.data(), out, run.count, kernels_);
    }

    /// Sums of terms that lie side by side.
    void sum_by_kernel(const Run& run, T* out) const {
        if constexpr (std::is_same_v<T, ComputeOf<T>>) {
            SimdKernels::unfused_kernels<T>(kernels_).sum_of_runs(run.terms, run.term_step, traced_,
                                                                  out, run.count);
        } else {
            constexpr std::uint64_t parts = sizeof(T) / sizeof(std::uint16_t);
            const Scratch<ComputeOf<T>> sums(run.count);
            stored_kernels<T>(kernels_).sum_of_runs(
                reinterpret_cast<const std::uint16_t*>(run.terms), parts * run.term_step, traced_,
                reinterpret_cast<float*>(sums.data()), parts * run.count);
            store_results(sums.data(), out, run.count, kernels_);
        }
    }

    /// Up to this step all elements on the way are widened at once.
    static constexpr std::uint64_t widened_step = 8;

    /// Adds elements that lie `step` apart.
    void add(ComputeOf<T>* sums, const T* elements, std::uint64_t step, std::uint64_t count) const {
        if constexpr (!std::is_same_v<T, ComputeOf<T>>) {
            if (step <= widened_step && count > 0) {
                const std::uint64_t widened = (count - 1) * step + 1;
                const Scratch<ComputeOf<T>> terms(widened);
                widen_elements(elements, terms.data(), widened, kernels_);
                add_strided(sums, terms.data(), step, count);
                return;
            }
        }
        add_strided(sums, elements, step, count);
    }

    template <typename Element>
    static void add_strided(ComputeOf<T>* sums, const Element* elements, std::uint64_t step,
                            std::uint64_t count) {
        const auto add_each = [=](auto distance) {
            for (std::uint64_t i = 0; i < count; ++i) {
                sums[i] += static_cast<ComputeOf<T>>(elements[i * distance]);
            }
        };
        if (step == 1) {
            add_each(std::integral_constant<std::uint64_t, 1>{}); // by vectors
        } else {
            add_each(step);
        }
    }

    const UnfusedTable& kernels_;
    FloatingMatrix<const T> A_;
    FloatingMatrix<T> result_;
    std::uint64_t traced_;
};

} // namespace

template <typename T>
void FloatingStructure<T>::transpose(const MatrixTransposition<T>& operands,
                                     const UnfusedTable& kernels) {
    map_transposed<T>(operands, BitsOf<T>{}, kernels);
}

template <typename T>
void FloatingStructure<T>::adjoint(const MatrixTransposition<T>& operands,
                                   const UnfusedTable& kernels) {
    map_transposed<T>(operands, imaginary_sign<T>(), kernels);
}

template <typename T>
void FloatingStructure<T>::kron(const KroneckerProduct<T>& operands, const UnfusedTable& kernels) {
    fill_kron<T>(operands.A, operands.B, operands.result, kernels);
}

template <typename T>
void FloatingStructure<T>::outer(const OuterProduct<T>& operands, const UnfusedTable& kernels) {
    const auto [a, b, result] = operands;
    // The Kronecker product of a column and a row.
    fill_kron<T>({a.data(), a.size(), 1, DataMatrixLayout::row_major},
                 {b.data(), 1, b.size(), DataMatrixLayout::row_major}, result, kernels);
}

template <typename T>
void FloatingStructure<T>::partial_trace_left(const MatrixMap<T>& operands,
                                              const UnfusedTable& kernels) {
    const PartialTrace<T> trace(operands, kernels);
    trace.fill(1, trace.kept());
}

template <typename T>
void FloatingStructure<T>::partial_trace_right(const MatrixMap<T>& operands,
                                               const UnfusedTable& kernels) {
    const PartialTrace<T> trace(operands, kernels);
    trace.fill(trace.traced(), 1);
}

template <typename T>
void FloatingStructure<T>::eye(const MatrixOutput<T>& operands) {
    const FloatingMatrix<T>& result = operands.result;
    const std::uint64_t count = result.rows * result.cols;
    const std::uint64_t diagonal_step = result.cols + 1;
    for_chunks(count, count, [&](std::uint64_t begin, std::uint64_t end) {
        std::fill(result.data + begin, result.data + end, stored_as<T>(0));
        const std::uint64_t diagonals_before = (begin + diagonal_step - 1) / diagonal_step;
        for (std::uint64_t i = diagonals_before * diagonal_step; i < end; i += diagonal_step) {
            result.data[i] = stored_as<T>(1);
        }
    });
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingStructure<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
