// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/balancing.h"

#include "backend/cpu/eigen_general/limits.h"
#include "backend/cpu/numbers/hypotenuse.h"
#include "backend/cpu/runtime/stop_point.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

namespace Tessaline::CpuFallback {

namespace {

/// A scaling must bring the sum of both norms below this share of itself to be worth making.
constexpr double worthwhile_share = 0.95;

/// One row or column of a matrix without its diagonal element.
class OffDiagonalLine {
  public:
    OffDiagonalLine(Complex* first, std::size_t stride, std::size_t diagonal, std::size_t n)
        : first_(first),
          stride_(stride),
          diagonal_(diagonal),
          n_(n) {}

    /// The logarithm to base two of the one-norm, formed at the scale of its largest part: minus
    /// infinity for a line of zeros.
    double log_norm() const {
        std::optional<int> largest;
        for_each([&](const Complex& element) { include_exponent(largest, element); });
        if (!largest) {
            return -HUGE_VAL;
        }
        const int exponent = *largest + 1;
        double norm = 0;
        for_each([&](const Complex& element) { norm += hypotenuse(scaled(element, -exponent)); });
        return exponent + std::log2(norm);
    }

    bool survives(int exponent) const {
        bool survives = true;
        for_each([&](const Complex& element) {
            survives = survives && survives_scaling(element, exponent);
        });
        return survives;
    }

    void scale(int exponent) const {
        for_each([&](Complex& element) { element = scaled(element, exponent); });
    }

  private:
    template <typename Visitor>
    void for_each(Visitor&& visitor) const {
        for (std::size_t index = 0; index < n_; ++index) {
            if (index != diagonal_) {
                visitor(first_[index * stride_]);
            }
        }
    }

    Complex* first_;
    std::size_t stride_;
    std::size_t diagonal_;
    std::size_t n_;
};

/// The exponent k for which two to k on a column and two to -k on its row come nearest to equal
/// norms; 0 where no scaling is worth making.
int balancing_exponent(double log_column, double log_row) {
    const int k = static_cast<int>(std::ceil((log_row - log_column - 1) * 0.5));
    // All at the scale of the larger norm, so that no sum can leave the range.
    const double scale = std::max(log_row, log_column);
    const double after = std::exp2(log_column + k - scale) + std::exp2(log_row - k - scale);
    const double before = std::exp2(log_column - scale) + std::exp2(log_row - scale);
    return after >= worthwhile_share * before ? 0 : k;
}

} // namespace

std::vector<int> balance(std::span<Complex> matrix, std::size_t n) {
    std::vector<int> exponents(n, 0);
    bool changed = true;
    for (int sweep = 0; sweep < maximum_balance_sweeps && changed; ++sweep) {
        changed = false;
        for (std::size_t i = 0; i < n; ++i) {
            stop_point();
            const OffDiagonalLine column(&matrix[i], n, i, n);
            const OffDiagonalLine row(&matrix[i * n], 1, i, n);
            const double log_column = column.log_norm();
            const double log_row = row.log_norm();
            if (std::isinf(log_column) || std::isinf(log_row)) {
                continue;
            }
            const int k = balancing_exponent(log_column, log_row);
            if (k == 0 || !row.survives(-k) || !column.survives(k)) {
                continue;
            }
            row.scale(-k);
            column.scale(k);
            exponents[i] += k;
            changed = true;
        }
    }
    return exponents;
}

} // namespace Tessaline::CpuFallback
