// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/positive_definite_logdet.h"

#include "backend/cpu/determinants/determinant_scaling.h"
#include "backend/cpu/determinants/failures.h"
#include "backend/cpu/determinants/structured_input.h"
#include "backend/cpu/numbers/compensated_products.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/tables/elimination_kernels.h"
#include "tessaline/storage/checked_size_cast.h"

#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <vector>

namespace Tessaline::CpuStructured {

using namespace NumberParts;
using namespace SimdKernels;

namespace {

constexpr const char* positive_definite_name = "tessaline.logdet_positive_definite";

[[noreturn]] void fail_at_pivot(std::size_t k, const char* detail) {
    fail(checked_size_cast<int>(k + 1), detail, positive_definite_name,
         "logdet_positive_definite - matrix is not positive definite at pivot " +
             std::to_string(k));
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

/// plain_cholesky() by recursion on halves of the columns. The columns of the factor lie along the
/// rows above the diagonal, where products find them contiguous, and conjugated below it.
template <typename C>
class BlockedCholesky {
    static constexpr std::size_t block = elimination_block;

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
    std::vector<double> pivots_;   ///< the diagonal less what the finished columns take
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

template std::optional<double> rooted_positive_definite_logdet(std::span<double>, std::size_t);
template std::optional<double> rooted_positive_definite_logdet(std::span<std::complex<double>>,
                                                               std::size_t);
template double unrooted_positive_definite_logdet(std::span<double>, std::size_t);
template double unrooted_positive_definite_logdet(std::span<std::complex<double>>, std::size_t);

} // namespace Tessaline::CpuStructured
