// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/signed_logdet.h"

#include "backend/cpu/determinants/determinant_scaling.h"
#include "backend/cpu/determinants/failures.h"
#include "backend/cpu/lu/blocked_elimination.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/numbers/log_magnitude.h"
#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/numbers/quotient_range.h"
#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/tables/square_transpose.h"

#include <algorithm>
#include <limits>
#include <optional>
#include <stdexcept>
#include <vector>

namespace Tessaline::CpuStructured {

using namespace NumberParts;
using namespace SimdKernels;

namespace {

constexpr const char* slogdet_name = "tessaline.slogdet";

[[noreturn]] void fail_at_non_finite_pivot() {
    throw std::runtime_error("slogdet - non-finite LU pivot");
}

/// The row at or below k with the largest part in column k, and that part; 0 for a zero column.
struct Pivot {
    std::size_t row;
    double magnitude;
};

template <typename C>
Pivot find_pivot(std::span<const C> data, std::size_t order, std::size_t k) {
    Pivot best{k, 0};
    for (std::size_t row = k; row < order; ++row) {
        const C candidate = data[row * order + k];
        if (!is_finite(candidate)) {
            fail_at_non_finite_pivot();
        }
        if (largest_part(candidate) > best.magnitude) {
            best = {row, largest_part(candidate)};
        }
    }
    return best;
}

[[noreturn]] void fail_at_vanished_multiplier() {
    fail(-1, "LU multiplier underflow", slogdet_name,
         "slogdet - LU multiplier range cannot be preserved");
}

struct OrderOfParts {
    template <typename C>
    static std::size_t search(const EliminationKernels<C>& kernels, const C* candidates,
                              std::size_t count) {
        return kernels.largest_part(candidates, count);
    }
    template <typename C>
    static std::size_t largest(const C* candidates, std::size_t count) {
        std::size_t best = 0;
        for (std::size_t i = 1; i < count; ++i) {
            best = largest_part(candidates[i]) > largest_part(candidates[best]) ? i : best;
        }
        return best;
    }
};

/// How slogdet chooses and divides complex elements.
struct DeterminantRules : CpuFallback::FiniteRules<OrderOfParts> {
    template <typename C>
    class Divisor {
      public:
        explicit Divisor(C pivot) : pivot_(pivot) {}
        C multiplier(C element) const {
            C quotient = element / pivot_;
            if constexpr (is_complex_element<C>) {
                if (!QuotientRange::keeps_both_components(quotient)) {
                    QuotientRange::recover_rounded_components(element, pivot_, quotient);
                }
            }
            return quotient;
        }
        /// EliminationKernels::eliminate() by this pivot. The library's division scales none of
        /// such operands.
        std::size_t eliminate(const EliminationKernels<C>& kernels,
                              const SimdKernels::PivotBlock<C>& block, std::size_t begin) const {
            constexpr double least = 0x1p-400;
            constexpr double most = 0x1p400;
            const double c = std::abs(pivot_.real());
            const double d = std::abs(pivot_.imag());
            if (std::min(c, d) < least || std::max(c, d) > most) {
                return begin;
            }
            const double ratio =
                c < d ? pivot_.real() / pivot_.imag() : pivot_.imag() / pivot_.real();
            return c < d ? kernels.eliminate(
                               block, begin,
                               {1, ratio, 1, pivot_.real() * ratio + pivot_.imag(), least})
                         : kernels.eliminate(
                               block, begin,
                               {1, 1, ratio, pivot_.real() + pivot_.imag() * ratio, least});
        }

      private:
        C pivot_;
    };
};

template <typename C>
C multiplier(C element, C pivot) {
    const C quotient = DeterminantRules::Divisor<C>(pivot).multiplier(element);
    if (QuotientRange::vanished(element, pivot, quotient)) {
        fail_at_vanished_multiplier();
    }
    return quotient;
}

/// Subtracts multiples of row k from the rows below it, right of column k.
template <typename C>
void eliminate(std::span<C> data, std::size_t order, std::size_t k) {
    const C* pivot_row = &data[k * order];
    for (std::size_t row = k + 1; row < order; ++row) {
        C* elements = &data[row * order];
        const C factor = multiplier(elements[k], pivot_row[k]);
        for (std::size_t column = k + 1; column < order; ++column) {
            elements[column] -= factor * pivot_row[column];
        }
    }
}

/// Makes a matrix upper triangular by elimination with partial pivoting; below the diagonal
/// anything may be left. Returns the number of swaps; empty for a singular matrix.
template <typename C>
std::optional<std::size_t> plain_eliminate(std::span<C> data, std::size_t order) {
    std::size_t swaps = 0;
    for (std::size_t k = 0; k < order; ++k) {
        stop_point();
        const Pivot pivot = find_pivot<C>(data, order, k);
        if (pivot.magnitude == 0) {
            return std::nullopt;
        }
        if (pivot.row != k) {
            const auto row = data.subspan(k * order, order);
            std::ranges::swap_ranges(row, data.subspan(pivot.row * order, order));
            ++swaps;
        }
        eliminate(data, order, k);
    }
    return swaps;
}

/// plain_eliminate() by blocks.
template <typename C>
std::optional<std::size_t> blocked_eliminate(std::span<C> data, std::size_t order) {
    std::vector<std::uint64_t> pivots(order);
    transpose_in_place(data.data(), order);
    CpuFallback::BlockedElimination<C, std::uint64_t, DeterminantRules> elimination(
        elimination_kernels<C>(), data.data(), order, pivots.data());
    switch (elimination.factor().end) {
    case EliminationEnd::complete:
        break;
    case EliminationEnd::singular:
        return std::nullopt;
    case EliminationEnd::non_finite:
        fail_at_non_finite_pivot();
    case EliminationEnd::vanished_multiplier:
        fail_at_vanished_multiplier();
    }
    return elimination.swaps();
}

template <typename C>
std::optional<std::size_t> eliminate(std::span<C> data, std::size_t order) {
    return order < smallest_blocked_order ? plain_eliminate(data, order)
                                          : blocked_eliminate(data, order);
}

} // namespace

template <typename C>
std::pair<C, double> signed_logdet(std::span<C> data, std::size_t order) {
    const double shift = normalise_determinant(data, order, slogdet_name);
    const auto swaps = eliminate(data, order);
    if (!swaps) {
        return {C(0), -std::numeric_limits<double>::infinity()};
    }
    C sign = *swaps % 2 == 0 ? 1 : -1;
    double total = 0;
    for (std::size_t k = 0; k < order; ++k) {
        const C value = data[k * order + k];
        const C direction = divided(value, largest_part(value));
        sign *= divided(direction, std::abs(direction));
        total += log_magnitude(value);
    }
    return {divided(sign, std::abs(sign)), total - shift};
}

template std::pair<double, double> signed_logdet(std::span<double>, std::size_t);
template std::pair<std::complex<double>, double> signed_logdet(std::span<std::complex<double>>,
                                                               std::size_t);

} // namespace Tessaline::CpuStructured
