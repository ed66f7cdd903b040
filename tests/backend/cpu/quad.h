// SPDX-License-Identifier: Apache-2.0
#pragma once

// Arithmetic with 113 bits, against which rounded results are judged: a product of two doubles is
// exact, and so is the difference of two that nearly cancel.

#include <bit>
#include <complex>
#include <vector>

namespace Tessaline::Testing {

__extension__ using Quad = __float128;
using QuadComplex = std::complex<Quad>;

inline long double narrowed(Quad value) {
    return static_cast<long double>(value);
}
inline std::complex<long double> narrowed(const QuadComplex& value) {
    return {narrowed(value.real()), narrowed(value.imag())};
}

/// The determinant of a row-major matrix, row by row over all sets of columns: entry S is that of
/// the first |S| rows in the columns of S. Exact for small integers.
template <typename Wide, typename Element>
Wide quad_determinant(const std::vector<Element>& matrix, std::size_t order) {
    std::vector<Wide> determinants(std::size_t{1} << order, Wide(0));
    determinants[0] = Wide(1);
    for (std::size_t columns = 1; columns < determinants.size(); ++columns) {
        const auto row = static_cast<std::size_t>(std::popcount(columns)) - 1;
        for (std::size_t column = 0; column < order; ++column) {
            const std::size_t bit = std::size_t{1} << column;
            if ((columns & bit) != 0) {
                const bool odd = std::popcount(columns & ~(2 * bit - 1)) % 2 != 0;
                const Wide term = Wide(matrix[row * order + column]) * determinants[columns & ~bit];
                determinants[columns] += odd ? -term : term;
            }
        }
    }
    return determinants.back();
}

} // namespace Tessaline::Testing
