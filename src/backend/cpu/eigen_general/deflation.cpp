// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/deflation.h"

#include "backend/cpu/numbers/hypotenuse.h"
#include "backend/cpu/runtime/stop_point.h"

#include <algorithm>
#include <cmath>

namespace Tessaline::CpuFallback {

namespace {

/// The logarithm to base two of the Euclidean norm of a vector, given those of its magnitudes, at
/// the scale of the largest. Plus infinity where one of them is not comparable.
double log_norm(std::span<const double> logarithms) {
    double largest = -HUGE_VAL;
    for (const double logarithm : logarithms) {
        if (std::isnan(logarithm)) {
            return HUGE_VAL;
        }
        largest = std::max(largest, logarithm);
    }
    if (std::isinf(largest)) {
        return largest;
    }
    double sum = 0;
    for (const double logarithm : logarithms) {
        if (std::isfinite(logarithm)) {
            sum += std::exp2(2 * (logarithm - largest));
        }
    }
    return largest + 0.5 * std::log2(sum);
}

/// Row `l` left of the diagonal.
std::span<const Complex> active_row(const SchurForm& schur, std::size_t l) {
    return std::span(schur.H).subspan(l * schur.n, l);
}

} // namespace

SchurForm::SchurForm(std::vector<Complex> matrix, std::size_t order)
    : n(order),
      H(std::move(matrix)),
      Z(order * order) {
    stop_point(); // the memory of a large matrix takes its time
    for (std::size_t i = 0; i < n; ++i) {
        Z[i * n + i] = 1;
    }
}

double largest_in_row_and_column(const SchurForm& schur, std::size_t l) {
    double largest = 0;
    for (std::size_t j = 0; j <= l; ++j) {
        include_magnitude(largest, schur.H[l * schur.n + j]);
        include_magnitude(largest, schur.H[j * schur.n + l]);
    }
    return largest;
}

std::size_t Deflation::deflate(SchurForm& schur, std::size_t active) {
    while (active >= 2 && is_negligible(schur, active - 1)) {
        stop_point();
        --active;
        std::fill_n(&schur.H[active * schur.n], active, Complex(0));
    }
    return active;
}

bool Deflation::is_negligible(const SchurForm& schur, std::size_t l) {
    const auto row = active_row(schur, l);
    const double limit = largest_in_row_and_column(schur, l) * relative_tolerance_;
    // No norm is smaller than a part by more than its roundings. Most rows end here.
    if (largest_part(row) > limit * (1 + 0x1p-20)) {
        return false;
    }
    const double norm = chain_norm(row);
    if (!std::isfinite(norm)) {
        return false;
    }
    return norm == 0 || (norm < limit && log_backward_error(schur, l) <= guard_);
}

// Zeroing the row h takes e h from H, e the unit vector l. In the coordinates of the input that is
// the product of the column D q and the row h Z* D^-1, with q the column l of Z.
double Deflation::log_backward_error(const SchurForm& schur, std::size_t l) {
    const std::size_t n = schur.n;
    for (std::size_t i = 0; i < n; ++i) {
        logarithms_[i] = exponents_[i] + std::log2(hypotenuse(schur.Z[i * n + l]));
    }
    const double log_column_norm = log_norm(logarithms_);
    for (std::size_t i = 0; i < n; ++i) {
        Complex sum = 0;
        for (std::size_t j = 0; j < l; ++j) {
            sum += schur.H[l * n + j] * std::conj(schur.Z[i * n + j]);
        }
        logarithms_[i] = std::log2(hypotenuse(sum)) - exponents_[i];
    }
    return log_column_norm + log_norm(logarithms_);
}

} // namespace Tessaline::CpuFallback
