// SPDX-License-Identifier: Apache-2.0
#pragma once

// Integer powers by repeated squaring, for matrices of any form.

#include <cstdint>

namespace Tessaline {

/// Returns the one of three matrices that then holds base to the `exponent`, an exponent above 0.
/// `accumulated` holds the identity, which is a factor of the first product like any other, so that
/// infinities and NaN spread as in every product; `base` and `spare` are overwritten as well.
/// `multiply(A, B, C)` sets C = A B, which overlaps neither. Matrix is a cheap handle.
///
/// Static, so that a unit for one instruction set keeps its copy to itself.
template <typename Matrix, typename Multiply>
static Matrix power_by_squaring(std::uint32_t exponent, Matrix accumulated, Matrix base,
                                Matrix spare, const Multiply& multiply) {
    const auto replace = [&](Matrix& factor) {
        multiply(factor, base, spare);
        const Matrix former = factor;
        factor = spare;
        spare = former;
    };
    while (true) {
        if (exponent % 2 != 0) {
            replace(accumulated);
        }
        exponent /= 2;
        if (exponent == 0) {
            return accumulated;
        }
        replace(base);
    }
}

} // namespace Tessaline
