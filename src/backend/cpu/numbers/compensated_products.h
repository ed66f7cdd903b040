// SPDX-License-Identifier: Apache-2.0
#pragma once

// Sums of a few products without intermediate rounding: each product is split into the two doubles
// that make it up exactly, and these are added in an expansion that loses nothing (J. R. Shewchuk,
// "Adaptive precision floating-point arithmetic and fast robust geometric predicates", 1997).

#include <cstddef>

namespace Tessaline::CompensatedProducts {

/// One product whose exact value is wanted.
struct Product {
    double x;
    double y;
};

/// (the sum of x y) / divisor, times two to the `exponent`, where the sum is rounded once.
/// NaN stands for what cannot be had in this way: a factor that is not finite, products too far
/// apart in scale for one common exponent, a quotient that underflows to zero.
/// For N of 2 and 3.
template <std::size_t N>
double sum_divided(const Product (&products)[N], double divisor, int exponent);

extern template double sum_divided(const Product (&)[2], double, int);
extern template double sum_divided(const Product (&)[3], double, int);

} // namespace Tessaline::CompensatedProducts
