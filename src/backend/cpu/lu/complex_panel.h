// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elimination of a few columns of a complex matrix.

#include "backend/cpu/lu/pivot_magnitude.h"
#include "backend/cpu/numbers/complex_division.h"
#include "backend/cpu/numbers/quotient_range.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace Tessaline::CpuFallback {

/// Divides elements of a column by its pivot, which is finite and not zero.
template <typename T>
class PivotDivisor {
  public:
    explicit PivotDivisor(T pivot) : pivot_(pivot) {}
    T multiplier(T element) const { return element / pivot_; }

  private:
    T pivot_;
};

template <typename Real>
class PivotDivisor<std::complex<Real>> {
    using T = std::complex<Real>;

  public:
    explicit PivotDivisor(T pivot) : pivot_(pivot), divisor_(pivot) {}
    T multiplier(T element) const {
        T quotient = divisor_.quotient(element);
        if (!QuotientRange::keeps_both_components(quotient)) {
            QuotientRange::recover_rounded_components(element, pivot_, quotient);
        }
        return quotient;
    }
    /// EliminationKernels::eliminate() by this pivot; nothing is done where it is too far from
    /// ordinary.
    std::uint64_t eliminate(const SimdKernels::EliminationKernels<T>& kernels,
                            const SimdKernels::PivotBlock<T>& block, std::uint64_t begin) const {
        if (!divisor_.is_ordinary()) {
            return begin;
        }
        const T scaled = divisor_.scaled();
        return kernels.eliminate(block, begin,
                                 {divisor_.larger_part(), scaled.real(), scaled.imag(),
                                  divisor_.scaled_squared(), std::numeric_limits<Real>::min()});
    }

  private:
    T pivot_;
    ComplexDivisor<Real> divisor_;
};

/// Rules by which a column without a non-zero candidate, or with one that is not finite, ends an
/// elimination. Order tells which is the largest of finite candidates: search() by a kernel, which
/// may leave it undecided, and largest() in any case.
template <typename Order>
struct FiniteRules {
    template <typename T>
    using Kernels = SimdKernels::EliminationKernels<T>;

    template <typename T>
    static SimdKernels::EliminationEnd find_pivot(const Kernels<T>& kernels, const T* candidates,
                                                  std::uint64_t count, std::uint64_t& pivot) {
        using End = SimdKernels::EliminationEnd;
        pivot = Order::search(kernels, candidates, count);
        if (pivot != SimdKernels::undecided) {
            return End::complete;
        }
        if (!std::all_of(candidates, candidates + count, NumberParts::is_finite<T>)) {
            return End::non_finite;
        }
        pivot = Order::largest(candidates, count);
        return candidates[pivot] == T(0) ? End::singular : End::complete;
    }
    template <typename T>
    static bool vanished(T element, T pivot, T multiplier) {
        return QuotientRange::vanished(element, pivot, multiplier);
    }
};

struct OrderOfMagnitudes {
    template <typename T>
    static std::uint64_t search(const SimdKernels::EliminationKernels<T>& kernels,
                                const T* candidates, std::uint64_t count) {
        return kernels.largest_magnitude(candidates, count);
    }
    template <typename T>
    static std::uint64_t largest(const T* candidates, std::uint64_t count) {
        PivotMagnitude<Component<T>> best;
        std::uint64_t best_index = 0;
        for (std::uint64_t i = 0; i < count; ++i) {
            const auto candidate = pivot_magnitude(candidates[i]);
            if (candidate.exceeds(best)) {
                best = candidate;
                best_index = i;
            }
        }
        return best_index;
    }
};

/// By what rules elements are chosen and divided: those of lu_factor().
struct FactorRules : FiniteRules<OrderOfMagnitudes> {
    template <typename T>
    using Divisor = PivotDivisor<T>;
};

/// What EliminationKernels::factor_panel() is for real matrices. T is complex.
template <typename T, typename Rules>
class ComplexPanel {
    using Index = SimdKernels::Index;
    using Progress = SimdKernels::EliminationProgress;
    using End = SimdKernels::EliminationEnd;

  public:
    ComplexPanel(const typename Rules::template Kernels<T>& kernels, T* panel, Index stride,
                 Index rows, Index columns)
        : kernels_(kernels),
          panel_(panel),
          stride_(stride),
          rows_(rows),
          columns_(columns) {}

    Progress factor(Index* pivots) const {
        for (Index k = 0; k < columns_; ++k) {
            const End found = Rules::find_pivot(kernels_, at(k, k), rows_ - k, pivots[k]);
            if (found != End::complete) {
                return {k, found};
            }
            pivots[k] += k;
            for (Index j = 0; j < columns_ && pivots[k] != k; ++j) {
                std::swap(*at(k, j), *at(pivots[k], j));
            }
            const Index end = eliminate(k);
            if (end != rows_) {
                return {k, End::vanished_multiplier, end};
            }
        }
        return {columns_};
    }

  private:
    /// Rows that are looked at one by one where one of them needs it, not to ask for each anew.
    static constexpr Index careful_rows = 16;

    T* at(Index row, Index column) const { return panel_ + column * stride_ + row; }

    /// Divides column k below the diagonal by the pivot and subtracts multiples of row k. Returns
    /// the first row whose multiplier vanishes, which is left as it is like those below; the number
    /// of rows where there is none.
    Index eliminate(Index k) const {
        const typename Rules::template Divisor<T> divisor(*at(k, k));
        const SimdKernels::PivotBlock<T> block{at(k, k), stride_, rows_ - k - 1, columns_ - k - 1};
        Index row = k + 1;
        while (row < rows_) {
            row = k + 1 + divisor.eliminate(kernels_, block, row - k - 1);
            const Index begin = row;
            const Index end = std::min(rows_, begin + careful_rows);
            while (row < end && divide(k, row, divisor)) {
                ++row;
            }
            // As rows: the transposes, which commutes the factors.
            kernels_.subtract_product({at(k, k + 1), stride_}, {at(begin, k), stride_},
                                      {at(begin, k + 1), stride_}, {block.right, 1, row - begin});
            if (row < end) {
                return row;
            }
        }
        return rows_;
    }

    /// False where the multiplier vanishes.
    bool divide(Index k, Index row, const typename Rules::template Divisor<T>& divisor) const {
        const T multiplier = divisor.multiplier(*at(row, k));
        const bool stands = !Rules::vanished(*at(row, k), *at(k, k), multiplier);
        if (stands) {
            *at(row, k) = multiplier;
        }
        return stands;
    }

    const typename Rules::template Kernels<T>& kernels_;
    T* panel_;
    Index stride_;
    Index rows_;
    Index columns_;
};

} // namespace Tessaline::CpuFallback
