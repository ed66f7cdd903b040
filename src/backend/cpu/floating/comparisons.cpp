// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/comparisons.h"

#include "backend/common/tolerances.h"
#include "backend/cpu/floating/widened.h"
#include "backend/cpu/runtime/stop_point.h"

#include <algorithm>
#include <cmath>

namespace Tessaline {

namespace {

template <typename Real>
bool components_equal(Real a, Real b, Tolerance<Real> tolerance) {
    if (a == b) {
        return true;
    }
    if (!std::isfinite(a) || !std::isfinite(b)) {
        return false;
    }
    const Real difference = std::abs(a - b);
    return difference <= tolerance.absolute ||
           difference <= tolerance.relative * std::max(std::abs(a), std::abs(b));
}

template <typename T>
bool values_equal(ComputeOf<T> a, ComputeOf<T> b) {
    constexpr auto tolerance = floating_tolerance<T>;
    if constexpr (is_complex_element<T>) {
        return components_equal(a.real(), b.real(), tolerance) &&
               components_equal(a.imag(), b.imag(), tolerance);
    } else {
        return components_equal(a, b, tolerance);
    }
}

/// Whether the inner products of the lines of a square matrix are those of an orthonormal basis.
template <typename T>
bool has_orthonormal_lines(const FloatingMatrix<const T>& matrix, const UnfusedTable& kernels) {
    using Compute = ComputeOf<T>;
    const WidenedRows<T> lines(matrix.is_row_major() ? matrix : matrix.transposed(), kernels);
    bool orthonormal = true;
    // The product of lines j and i is the conjugate of that of i and j, rounding included: one of
    // the two decides for both.
    for (std::uint64_t i = 0; i < matrix.rows && orthonormal; ++i) {
        stop_point();
        sum_side_by_side<Compute>(
            i, matrix.rows, matrix.cols,
            [&lines, line = lines[i]](std::uint64_t j, std::uint64_t k) {
                return conjugated(line[k]) * lines[j][k];
            },
            [&orthonormal, i](std::uint64_t j, Compute product) {
                const Compute target = i == j ? Compute(1) : Compute(0);
                orthonormal = orthonormal && values_equal<T>(product, target);
            });
    }
    return orthonormal;
}

} // namespace

template <typename T>
void FloatingComparisons<T>::is_unitary(const MatrixReduction<T, int>& operands,
                                        const UnfusedTable& kernels) {
    const auto& matrix = operands.A;
    const bool unitary = matrix.rows == matrix.cols && has_orthonormal_lines(matrix, kernels);
    operands.result.store(unitary ? 1 : 0);
}

template <typename T>
void FloatingComparisons<T>::vector_equal(const VectorComparison<T>& operands) {
    const bool equal = std::ranges::equal(operands.a, operands.b, [](const T& x, const T& y) {
        return values_equal<T>(widened(x), widened(y));
    });
    operands.result.store(equal ? 1 : 0);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingComparisons<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
