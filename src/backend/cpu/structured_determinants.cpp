// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/structured_determinants.h"

#include "backend/cpu/compensated_products.h"
#include "backend/cpu/floating_policies.h"
#include "backend/cpu/log_magnitude.h"
#include "backend/cpu/number_parts.h"
#include "backend/cpu/quotient_range.h"
#include "backend/cpu/structured_input.h"
#include "tessaline/catalogue/errors.h"
#include "tessaline/storage/checked_size_cast.h"

#include <limits>
#include <numbers>

namespace Tessaline::CpuStructured {

using namespace NumberParts;

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
            throw std::runtime_error("slogdet - non-finite LU pivot");
        }
        if (largest_part(candidate) > best.magnitude) {
            best = {row, largest_part(candidate)};
        }
    }
    return best;
}

template <typename C>
C multiplier(C element, C pivot) {
    C quotient = element / pivot;
    if constexpr (is_complex_element<C>) {
        QuotientRange::recover_rounded_components(element, pivot, quotient);
    }
    if (QuotientRange::vanished(element, pivot, quotient)) {
        fail(-1, "LU multiplier underflow", slogdet_name,
             "slogdet - LU multiplier range cannot be preserved");
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
    const Extent extent = extent_of<C>(data, order);
    if (extent.is_diagonal || extent.smallest >= Limits::min()) {
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
    C sign = 1;
    double total = 0;
    for (std::size_t k = 0; k < order; ++k) {
        const Pivot pivot = find_pivot<C>(data, order, k);
        if (pivot.magnitude == 0) {
            return {C(0), -std::numeric_limits<double>::infinity()};
        }
        if (pivot.row != k) {
            const auto row = data.subspan(k * order, order);
            std::ranges::swap_ranges(row, data.subspan(pivot.row * order, order));
            sign = -sign;
        }
        const C value = data[k * order + k];
        const C direction = divided(value, pivot.magnitude);
        sign *= divided(direction, std::abs(direction));
        total += log_magnitude(value);
        eliminate(data, order, k);
    }
    return {divided(sign, std::abs(sign)), total - shift};
}

template <typename C>
std::optional<double> rooted_positive_definite_logdet(std::span<C> data, std::size_t order) {
    mirror_lower_triangle(data, order);
    const double shift = normalise_determinant(data, order, positive_definite_name);
    double total = 0;
    for (std::size_t k = 0; k < order; ++k) {
        C* pivot_row = &data[k * order];
        const double diagonal = real_part(pivot_row[k]);
        double pivot = diagonal;
        for (std::size_t column = 0; column < k; ++column) {
            pivot -= squared_magnitude(pivot_row[column]);
        }
        if (!std::isfinite(pivot)) {
            fail_at_pivot(k, "non-positive Cholesky pivot");
        }
        const double operations = 4 * static_cast<double>(k) + 1;
        if (pivot <= operations * (std::abs(diagonal) * std::numeric_limits<double>::epsilon())) {
            return std::nullopt;
        }
        const double root = std::sqrt(pivot);
        total += std::log(pivot);
        pivot_row[k] = root;
        for (std::size_t row = k + 1; row < order; ++row) {
            C* elements = &data[row * order];
            elements[k] =
                divided(without_finished_columns(elements[k], elements, pivot_row, k), root);
        }
    }
    return total - shift;
}

template <typename C>
double unrooted_positive_definite_logdet(std::span<C> data, std::size_t order) {
    mirror_lower_triangle(data, order);
    const double shift = normalise_determinant(data, order, positive_definite_name);
    double total = 0;
    for (std::size_t k = 0; k < order; ++k) {
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
