// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/structured_determinants.h"

#include "backend/cpu/determinants/structured_input.h"
#include "backend/cpu/lu/blocked_elimination.h"
#include "backend/cpu/numbers/compensated_products.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/numbers/log_magnitude.h"
#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/numbers/quotient_range.h"
#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/tables/square_transpose.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/storage/checked_size_cast.h"

#include <algorithm>
#include <array>
#include <bit>
#include <emmintrin.h>
#include <limits>
#include <numbers>
#include <vector>

namespace Tessaline::CpuStructured {

using namespace NumberParts;
using namespace SimdKernels;
using CpuFallback::smallest_blocked_order;

namespace {

constexpr const char* slogdet_name = "tessaline.slogdet";
constexpr const char* positive_definite_name = "tessaline.logdet_positive_definite";

[[noreturn]] void fail(std::int32_t status, const char* detail, const char* operation,
                       const std::string& message) {
    throw SolverError("CPU", status, detail, operation, message, ErrorReason::solver_failure);
}

[[noreturn]] void fail_at_pivot(std::size_t k, const char* detail) {
    fail(checked_size_cast<int>(k + 1), detail, positive_definite_name,
         "logdet_positive_definite - matrix is not positive definite at pivot " +
             std::to_string(k));
}

/// The magnitudes of the non-zero parts of a matrix.
struct Extent {
    double largest = 0;
    double smallest = std::numeric_limits<double>::infinity();
    bool is_diagonal = true;

    void include(double part) {
        if (part != 0) {
            largest = std::max(largest, std::abs(part));
            smallest = std::min(smallest, std::abs(part));
        }
    }
};

template <typename C>
Extent extent_of(std::span<const C> data, std::size_t order) {
    Extent extent;
    for (std::size_t row = 0; row < order; ++row) {
        for (std::size_t column = 0; column < order; ++column) {
            const C element = data[row * order + column];
            extent.include(real_part(element));
            extent.include(imaginary_part(element));
            extent.is_diagonal &= row == column || element == C(0);
        }
    }
    return extent;
}

[[noreturn]] void fail_at_non_finite_pivot() {
    throw std::runtime_error("slogdet - non-finite LU pivot");
}

/// In vectors, which the compiler does not make of a loop over doubles by itself.
template <typename C>
bool has_subnormal_part(std::span<const C> data) {
    constexpr std::size_t lanes = 2;
    const __m128d sign = _mm_set1_pd(-0.0);
    const __m128d least_normal = _mm_set1_pd(std::numeric_limits<double>::min());
    const auto* const parts = reinterpret_cast<const double*>(data.data());
    const std::size_t count = data.size_bytes() / sizeof(double);
    __m128d found = _mm_setzero_pd();
    const auto include = [&](__m128d next) {
        const __m128d magnitudes = _mm_andnot_pd(sign, next);
        found = _mm_or_pd(found, _mm_and_pd(_mm_cmplt_pd(magnitudes, least_normal),
                                            _mm_cmpgt_pd(magnitudes, _mm_setzero_pd())));
    };
    for (std::size_t i = 0; i + lanes <= count; i += lanes) {
        include(_mm_loadu_pd(parts + i));
    }
    if (count % lanes != 0) {
        include(_mm_load_sd(parts + count - 1));
    }
    return _mm_movemask_pd(found) != 0;
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
        /// As EliminationKernels have it. The library's division scales none of such operands.
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

double squared_magnitude(double value) {
    return value * value;
}
double squared_magnitude(std::complex<double> value) {
    return value.real() * value.real() + value.imag() * value.imag();
}

/// `value` minus the products of a row of the Cholesky factor with the conjugates of another, in
/// the columns before k.
template <typename C>
C without_finished_columns(C value, const C* row, const C* pivot_row, std::size_t k) {
    for (std::size_t column = 0; column < k; ++column) {
        value -= conjugated(pivot_row[column]) * row[column];
    }
    return value;
}

/// Takes the logarithm of a pivot into `total` and returns the pivot's root; 0 where rounding
/// decides its sign. `diagonal` is its element of the matrix.
double root_of_pivot(double pivot, double diagonal, std::size_t k, double& total) {
    if (!std::isfinite(pivot)) {
        fail_at_pivot(k, "non-positive Cholesky pivot");
    }
    const double operations = 4 * static_cast<double>(k) + 1;
    if (pivot <= operations * (std::abs(diagonal) * std::numeric_limits<double>::epsilon())) {
        return 0;
    }
    total += std::log(pivot);
    return std::sqrt(pivot);
}

/// Adds up the logarithms of the pivots of a Hermitian matrix. False where rounding decides the
/// sign of one.
template <typename C>
bool plain_cholesky(std::span<C> data, std::size_t order, double& total) {
    for (std::size_t k = 0; k < order; ++k) {
        stop_point();
        C* pivot_row = &data[k * order];
        const double diagonal = real_part(pivot_row[k]);
        double pivot = diagonal;
        for (std::size_t column = 0; column < k; ++column) {
            pivot -= squared_magnitude(pivot_row[column]);
        }
        const double root = root_of_pivot(pivot, diagonal, k, total);
        if (root == 0) {
            return false;
        }
        pivot_row[k] = root;
        for (std::size_t row = k + 1; row < order; ++row) {
            C* elements = &data[row * order];
            elements[k] =
                divided(without_finished_columns(elements[k], elements, pivot_row, k), root);
        }
    }
    return true;
}

/// The same by recursion on halves of the columns. The columns of the factor lie along the rows
/// above the diagonal, where products find them contiguous, and conjugated below it.
template <typename C>
class BlockedCholesky {
    static constexpr std::size_t block = 8;

  public:
    BlockedCholesky(const TriangleKernels<C>& products, std::span<C> data, std::size_t order)
        : products_(products),
          data_(data),
          n_(order),
          diagonal_(order),
          pivots_(order) {
        for (std::size_t i = 0; i < n_; ++i) {
            pivots_[i] = diagonal_[i] = real_part(*at(i, i));
            for (std::size_t j = i + 1; j < n_ && is_complex_element<C>; ++j) {
                *at(i, j) = conjugated(*at(i, j));
            }
        }
    }

    bool factor(double& total) { return factor_columns(0, n_, total); }

  private:
    C* at(std::size_t row, std::size_t column) const { return &data_[row * n_ + column]; }

    bool factor_columns(std::size_t first, std::size_t count, double& total) {
        if (count <= block) {
            stop_point();
            return factor_panel(first, first + count, total);
        }
        const std::size_t middle = first + std::bit_floor(count - 1);
        const std::size_t end = first + count;
        if (!factor_columns(first, middle - first, total)) {
            return false;
        }
        products_.subtract_product({at(middle, first), n_}, {at(first, middle), n_},
                                   {at(middle, middle), n_},
                                   {end - middle, middle - first, n_ - middle});
        return factor_columns(middle, end - middle, total);
    }

    bool factor_panel(std::size_t first, std::size_t end, double& total) {
        for (std::size_t k = first; k < end; ++k) {
            const double root = root_of_pivot(pivots_[k], diagonal_[k], k, total);
            if (root == 0) {
                return false;
            }
            std::array<C, block> factors;
            for (std::size_t row = first; row < k; ++row) {
                factors[row - first] = conjugated(*at(row, k));
            }
            // From the diagonal on, whose value is known already: at(k, n_) need not exist.
            products_.subtract_product({factors.data(), block}, {at(first, k), n_}, {at(k, k), n_},
                                       {1, k - first, n_ - k});
            for (std::size_t column = k + 1; column < n_; ++column) {
                C& element = *at(k, column);
                element = divided(element, root);
                pivots_[column] -= squared_magnitude(element);
            }
        }
        for (std::size_t row = end; row < n_; ++row) {
            for (std::size_t k = first; k < end; ++k) {
                *at(row, k) = conjugated(*at(k, row));
            }
        }
        return true;
    }

    const TriangleKernels<C>& products_;
    std::span<C> data_;
    std::size_t n_;
    std::vector<double> diagonal_; ///< of the matrix
    std::vector<double> pivots_;   ///< the same less what the finished columns take
};

/// Scales column k below its pivot by two to the -`exponent` and keeps the result in row k, whose
/// part right of the diagonal is not read any more.
template <typename C>
void store_scaled_column(std::span<C> data, std::size_t order, std::size_t k, int exponent) {
    for (std::size_t row = k + 1; row < order; ++row) {
        const C element = data[row * order + k];
        const C shifted = scaled(element, -exponent);
        if (!is_finite(shifted) || scaled(shifted, exponent) != element) {
            fail(-1, "unrepresentable unrooted scaling", positive_definite_name,
                 "logdet_positive_definite - unrooted scaling range cannot be preserved");
        }
        data[k * order + row] = shifted;
    }
}

/// (a m - x conj(t)) / m, each part rounded once.
double schur_complement(double a, double x, double t, double m) {
    return CompensatedProducts::sum_divided({{a, m}, {-x, t}}, m, 0);
}
std::complex<double> schur_complement(std::complex<double> a, std::complex<double> x,
                                      std::complex<double> t, double m) {
    return {CompensatedProducts::sum_divided(
                {{a.real(), m}, {-x.real(), t.real()}, {-x.imag(), t.imag()}}, m, 0),
            CompensatedProducts::sum_divided(
                {{a.imag(), m}, {-x.imag(), t.real()}, {x.real(), t.imag()}}, m, 0)};
}

} // namespace

template <typename C>
double normalise_determinant(std::span<C> data, std::size_t order, const char* operation) {
    using Limits = std::numeric_limits<double>;
    if (!has_subnormal_part<C>(data)) {
        return 0;
    }
    const Extent extent = extent_of<C>(data, order);
    if (extent.is_diagonal) {
        return 0;
    }
    const int largest = std::ilogb(extent.largest);
    const int smallest = std::ilogb(extent.smallest);
    // Two digits of a mantissa above the smallest normal number, and even, so that a square root
    // scales exactly.
    constexpr int target = Limits::min_exponent - 1 + Limits::digits;
    const int shift = (std::max(target - smallest, -largest) + 1) & ~1;
    if (largest + shift >= Limits::max_exponent) {
        fail(-1, "determinant scaling would overflow", operation,
             std::string(operation) + " - subnormal factorisation range cannot be preserved");
    }
    for (C& element : data) {
        element = scaled(element, shift);
    }
    return static_cast<double>(order) * shift * std::numbers::ln2;
}

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

template <typename C>
std::optional<double> rooted_positive_definite_logdet(std::span<C> data, std::size_t order) {
    mirror_lower_triangle(data, order);
    const double shift = normalise_determinant(data, order, positive_definite_name);
    double total = 0;
    const bool found =
        order < smallest_blocked_order
            ? plain_cholesky(data, order, total)
            : BlockedCholesky<C>(elimination_kernels<C>(), data, order).factor(total);
    return found ? std::optional(total - shift) : std::nullopt;
}

template <typename C>
double unrooted_positive_definite_logdet(std::span<C> data, std::size_t order) {
    mirror_lower_triangle(data, order);
    const double shift = normalise_determinant(data, order, positive_definite_name);
    double total = 0;
    for (std::size_t k = 0; k < order; ++k) {
        stop_point();
        const double pivot = real_part(data[k * order + k]);
        if (!(pivot > 0) || !std::isfinite(pivot)) {
            fail_at_pivot(k, "non-positive unrooted pivot");
        }
        total += std::log(pivot);
        int exponent = 0;
        const double mantissa = std::frexp(pivot, &exponent);
        store_scaled_column(data, order, k, exponent);
        const C* scaled_column = &data[k * order];
        for (std::size_t row = k + 1; row < order; ++row) {
            C* elements = &data[row * order];
            for (std::size_t column = k + 1; column <= row; ++column) {
                elements[column] = schur_complement(elements[column], elements[k],
                                                    scaled_column[column], mantissa);
            }
        }
    }
    return total - shift;
}

#define TESSALINE_INSTANTIATE_DETERMINANTS(C)                                                      \
    template double normalise_determinant(std::span<C>, std::size_t, const char*);                 \
    template std::pair<C, double> signed_logdet(std::span<C>, std::size_t);                        \
    template std::optional<double> rooted_positive_definite_logdet(std::span<C>, std::size_t);     \
    template double unrooted_positive_definite_logdet(std::span<C>, std::size_t);
TESSALINE_INSTANTIATE_DETERMINANTS(double)
TESSALINE_INSTANTIATE_DETERMINANTS(std::complex<double>)
#undef TESSALINE_INSTANTIATE_DETERMINANTS

} // namespace Tessaline::CpuStructured
