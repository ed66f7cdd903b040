// SPDX-License-Identifier: Apache-2.0
#pragma once

// std::hypot as this library defines it, so that vectors of it have the same bits.

#include <cmath>
#include <complex>
#include <limits>

namespace Tessaline {

/// sqrt(x^2 + y^2) without overflow, with the correction by the residual of the root that C. F.
/// Borges gives in "Algorithm 1014: An Improved Algorithm for hypot(x,y)", ACM Trans. Math. Softw.
/// 47 (2020). The bits are those of std::hypot in the GNU C library from 2.35 on.
inline double hypotenuse(double x, double y) {
    x = std::abs(x);
    y = std::abs(y);
    // One of them is NaN where x or y is.
    const double a = x < y ? y : x;
    const double b = x < y ? x : y;
    if (b <= a * 0x1p-50) {
        return a;
    }
    // Where a square could leave the range, or one is NaN.
    if (!(a <= 0x1p500 && b >= 0x1p-450)) [[unlikely]] {
        return std::hypot(x, y);
    }
    const double root = std::sqrt(a * a + b * b);
    double excess;
    if (root <= 2 * b) {
        const double above = root - b;
        excess = a * (2 * above - a) + (above - 2 * (a - b)) * above;
    } else {
        const double above = root - a;
        excess = 2 * above * (a - 2 * b) + ((4 * above - b) * b + above * above);
    }
    return root - excess / (2 * root);
}

/// Of floats, whose squares have room in a double.
inline float hypotenuse(float x, float y) {
    const auto wide_x = static_cast<double>(x);
    const auto wide_y = static_cast<double>(y);
    const double squares = wide_x * wide_x + wide_y * wide_y;
    if (!(squares <= std::numeric_limits<double>::max())) [[unlikely]] {
        return std::hypot(x, y);
    }
    return static_cast<float>(std::sqrt(squares));
}

template <typename Real>
Real hypotenuse(std::complex<Real> z) {
    return hypotenuse(z.real(), z.imag());
}

} // namespace Tessaline
