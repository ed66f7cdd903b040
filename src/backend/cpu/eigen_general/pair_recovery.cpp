// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/pair_recovery.h"

#include "backend/cpu/numbers/hypotenuse.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

#include <algorithm>
#include <cmath>

namespace Tessaline::CpuFallback {

namespace {

/// The products of rows, `stride` elements apart, with a vector of as many elements as they have.
void multiply_rows(const Complex* rows, std::size_t stride, std::span<const Complex> vector,
                   std::span<Complex> products) {
    SimdKernels::unfused_table().complex128.row_products(
        {rows, stride}, vector.data(), products.data(), products.size(), vector.size());
}

} // namespace

void BackSubstitution::solve(const SchurForm& schur, Complex lambda, std::span<Complex> x) {
    x.back() = 1;
    for (std::size_t i = x.size() - 1; i-- > 0;) {
        const auto known = x.subspan(i);
        known.front() = element(schur, lambda, known.subspan(1), i);
        // The solution may grow by the reciprocal of epsilon in every step: keep it below 1.
        if (const auto largest = largest_exponent(known); largest && *largest >= 0) {
            scale(known, -(*largest + 1));
        }
    }
}

/// Element i of the solution from those after it, `x`.
Complex BackSubstitution::element(const SchurForm& schur, Complex lambda,
                                  std::span<const Complex> x, std::size_t i) {
    const auto row = std::span(row_).first(x.size() + 2);
    row[0] = lambda;
    std::copy_n(&schur.H[i * schur.n + i], x.size() + 1, &row[1]);
    if (const auto largest = largest_exponent(row)) {
        scale(row, -(*largest + 1));
    }
    Complex sum = 0;
    for (std::size_t j = 0; j < x.size(); ++j) {
        sum += row[j + 2] * x[j];
    }
    return -sum / denominator(row);
}

/// The difference of the diagonal element and the eigenvalue that stand first in `coefficients`.
Complex BackSubstitution::denominator(std::span<const Complex> coefficients) {
    double largest = 0;
    for (const Complex coefficient : coefficients) {
        include_magnitude(largest, coefficient);
    }
    const double floor = std::max(largest * epsilon_, smallest_);
    const Complex difference = coefficients[1] - coefficients[0];
    const double magnitude = std::abs(difference);
    if (magnitude >= floor) {
        return difference;
    }
    return magnitude == 0 ? floor : difference * (floor / magnitude);
}

void restore_coordinates(const SchurForm& schur, std::span<const int> exponents,
                         std::span<const Complex> x, std::span<Complex> vector) {
    std::optional<int> largest;
    multiply_rows(schur.Z.data(), schur.n, x, vector);
    normalise(vector);
    for (std::size_t i = 0; i < schur.n; ++i) {
        if (const auto exponent = largest_exponent(vector.subspan(i, 1))) {
            largest =
                std::max(largest.value_or(*exponent + exponents[i]), *exponent + exponents[i]);
        }
    }
    if (largest) {
        for (std::size_t i = 0; i < schur.n; ++i) {
            vector[i] = scaled(vector[i], exponents[i] - *largest);
        }
    }
    normalise(vector);
}

ScaledInput::ScaledInput(std::vector<Complex> input) : matrix(std::move(input)), norm(0) {
    const auto largest = largest_exponent(matrix);
    exponent = largest ? *largest + 1 : 0;
    scale(matrix, -exponent);
    norm = chain_norm(matrix);
}

double ScaledInput::residual(Complex lambda, std::span<const Complex> vector) {
    const std::size_t n = vector.size();
    products_.resize(n);
    multiply_rows(matrix.data(), n, vector, products_);
    double residual = 0;
    for (std::size_t i = 0; i < n; ++i) {
        residual = hypotenuse(residual, hypotenuse(products_[i] - lambda * vector[i]));
    }
    const double denominator = (std::abs(lambda) + norm) * chain_norm(vector);
    return denominator != 0 ? residual / denominator : residual;
}

} // namespace Tessaline::CpuFallback
