// SPDX-License-Identifier: Apache-2.0
#pragma once

// Elimination of a few columns of a complex matrix.

#include "backend/cpu/floating_complex_division.h"
#include "backend/cpu/pivot_magnitude.h"
#include "backend/cpu/quotient_range.h"
#include "backend/cpu/simd/simd_elimination_kernels.h"
#include "backend/cpu/simd/simd_unfused_kernels.h"

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
    /// Divides elements as long as the kernel for many at once can. Returns how many are done.
    std::uint64_t divide(const SimdKernels::EliminationKernels<T>& kernels, T* elements,
                         std::uint64_t count) const {
        if (!divisor_.is_ordinary()) {
            return 0;
        }
        const T scaled = divisor_.scaled();
        return kernels.divide(
            elements, count,
            {divisor_.larger_part(), scaled.real(), scaled.imag(), divisor_.scaled_squared()});
    }

  private:
    T pivot_;
    ComplexDivisor<Real> divisor_;
};

/// By what rules elements are chosen and divided: those of lu_factor().
struct FactorRules {
    template <typename T>
    using Divisor = PivotDivisor<T>;

    /// The first of the candidates with the largest magnitude. Squares tell which may be that; they
    /// are off by a few roundings, and where one of them may have left the range all may be.
    template <typename T>
    static std::uint64_t largest(const T* candidates, std::uint64_t count) {
        constexpr double most = 0x1p1000;
        constexpr double least = 0x1p-900;
        constexpr double share = 1 - 0x1p-40;
        double largest_square = 0;
        for (std::uint64_t i = 0; i < count; ++i) {
            largest_square = std::max(largest_square, squared_magnitude(candidates[i]));
        }
        const bool tells = largest_square >= least && largest_square <= most;
        const double bound = tells ? share * largest_square : 0;
        PivotMagnitude<Component<T>> best;
        std::uint64_t best_index = 0;
        for (std::uint64_t i = 0; i < count; ++i) {
            if (squared_magnitude(candidates[i]) >= bound) {
                const auto candidate = pivot_magnitude(candidates[i]);
                if (candidate.exceeds(best)) {
                    best = candidate;
                    best_index = i;
                }
            }
        }
        return best_index;
    }

  private:
    template <typename T>
    static double squared_magnitude(T value) {
        const double real = value.real();
        const double imag = value.imag();
        return real * real + imag * imag;
    }
};

/// As EliminationKernels have it for real matrices. T is complex.
template <typename T, typename Rules>
class ComplexPanel {
    using Index = SimdKernels::Index;
    using Progress = SimdKernels::EliminationProgress;
    using End = SimdKernels::EliminationEnd;

  public:
    ComplexPanel(const SimdKernels::UnfusedKernels<T>& products,
                 const SimdKernels::EliminationKernels<T>& kernels, T* panel, Index stride,
                 Index rows, Index columns)
        : products_(products),
          kernels_(kernels),
          panel_(panel),
          stride_(stride),
          rows_(rows),
          columns_(columns) {}

    Progress factor(Index* pivots) const {
        for (Index k = 0; k < columns_; ++k) {
            const T* const column = panel_ + k * stride_;
            if (!are_finite(column + k, rows_ - k)) {
                return {k, End::non_finite};
            }
            pivots[k] = k + Rules::largest(column + k, rows_ - k);
            if (column[pivots[k]] == T(0)) {
                return {k, End::singular};
            }
            for (Index j = 0; j < columns_ && pivots[k] != k; ++j) {
                std::swap(panel_[j * stride_ + k], panel_[j * stride_ + pivots[k]]);
            }
            const Index end = store_multipliers(k);
            subtract_multiples(k, end);
            if (end != rows_) {
                return {k, End::vanished_multiplier, end};
            }
        }
        return {columns_};
    }

  private:
    static bool are_finite(const T* candidates, Index count) {
        Component<T> zero = 0;
        for (Index i = 0; i < count; ++i) {
            zero += (candidates[i].real() - candidates[i].real()) +
                    (candidates[i].imag() - candidates[i].imag());
        }
        return zero == 0;
    }

    /// Divides column k below the diagonal by the pivot. Returns the first row whose multiplier
    /// vanishes, which keeps its element like those below; the number of rows where there is none.
    Index store_multipliers(Index k) const {
        T* const column = panel_ + k * stride_;
        const typename Rules::template Divisor<T> divisor(column[k]);
        Index fast_again = k + 1;
        for (Index row = k + 1; row < rows_; ++row) {
            if (row == fast_again) {
                row += divisor.divide(kernels_, column + row, rows_ - row);
                // What follows is looked at one by one, and not each time anew all together.
                fast_again = row + 16;
                if (row == rows_) {
                    break;
                }
            }
            const T multiplier = divisor.multiplier(column[row]);
            if (QuotientRange::vanished(column[row], column[k], multiplier)) {
                return row;
            }
            column[row] = multiplier;
        }
        return rows_;
    }

    void subtract_multiples(Index k, Index end) const {
        T* const right = panel_ + (k + 1) * stride_ + k;
        if (k + 1 < columns_ && k + 1 < end) {
            // As rows: the transposes, which commutes the factors.
            products_.subtract_product({right, stride_}, {panel_ + k * stride_ + k + 1, stride_},
                                       {right + 1, stride_}, {columns_ - k - 1, 1, end - k - 1});
        }
    }

    const SimdKernels::UnfusedKernels<T>& products_;
    const SimdKernels::EliminationKernels<T>& kernels_;
    T* panel_;
    Index stride_;
    Index rows_;
    Index columns_;
};

} // namespace Tessaline::CpuFallback
