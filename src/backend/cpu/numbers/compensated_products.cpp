// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/numbers/compensated_products.h"

#include <cmath>
#include <limits>
#include <optional>

namespace Tessaline::CompensatedProducts {

namespace {

constexpr double nan = std::numeric_limits<double>::quiet_NaN();

/// high + low, times two to the `exponent`, is a product exactly.
struct SplitProduct {
    double high;
    double low;
    int exponent;
};

/// Empty for a factor that is not finite.
std::optional<SplitProduct> split(const Product& product) {
    int x_exponent = 0;
    int y_exponent = 0;
    const double x = std::frexp(product.x, &x_exponent);
    const double y = std::frexp(product.y, &y_exponent);
    if (!(std::abs(x) <= 1) || !(std::abs(y) <= 1)) {
        return std::nullopt;
    }
    const double high = x * y;
    // The mantissas lie in [1/2, 1), so neither part can underflow.
    return SplitProduct{high, std::fma(x, y, -high), x_exponent + y_exponent};
}

/// A sum kept exactly, as components that do not overlap, in ascending order of magnitude.
template <std::size_t Capacity>
class Expansion {
  public:
    void add(double term) {
        double sum = term;
        std::size_t kept = 0;
        for (std::size_t index = 0; index < count_; ++index) {
            const double component = components_[index];
            const double next = sum + component;
            // Knuth's two-sum: `next` and `error` together are the sum exactly.
            const double virtual_component = next - sum;
            const double error =
                (sum - (next - virtual_component)) + (component - virtual_component);
            sum = next;
            if (error != 0) {
                components_[kept++] = error;
            }
        }
        if (sum != 0) {
            components_[kept++] = sum;
        }
        count_ = kept;
    }

    double rounded() const {
        double sum = 0;
        for (std::size_t index = 0; index < count_; ++index) {
            sum += components_[index];
        }
        return sum;
    }

  private:
    double components_[Capacity];
    std::size_t count_ = 0;
};

} // namespace

template <std::size_t N>
double sum_divided(const Product (&products)[N], double divisor, int exponent) {
    SplitProduct terms[N];
    std::optional<int> common;
    for (std::size_t index = 0; index < N; ++index) {
        const auto term = split(products[index]);
        if (!term) {
            return nan;
        }
        terms[index] = *term;
        // The high part of two mantissas is zero only when one of them is.
        if (term->high != 0 && (!common || term->exponent > *common)) {
            common = term->exponent;
        }
    }
    if (!common) {
        return 0;
    }
    Expansion<2 * N> exact;
    for (const SplitProduct& term : terms) {
        const int shift = term.exponent - *common;
        for (const double part : {term.low, term.high}) {
            const double shifted = std::scalbn(part, shift);
            if (std::scalbn(shifted, -shift) != part) {
                return nan;
            }
            exact.add(shifted);
        }
    }
    const double sum = exact.rounded();
    const double quotient = std::scalbn(sum / divisor, *common + exponent);
    // Underflow must not look like cancellation.
    return quotient == 0 && sum != 0 ? nan : quotient;
}

template double sum_divided(const Product (&)[2], double, int);
template double sum_divided(const Product (&)[3], double, int);

} // namespace Tessaline::CompensatedProducts
