// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/determinant_scaling.h"

#include "backend/cpu/determinants/failures.h"
#include "backend/cpu/numbers/number_parts.h"

#include <algorithm>
#include <cmath>
#include <emmintrin.h>
#include <limits>
#include <numbers>

namespace Tessaline::CpuStructured {

using namespace NumberParts;

namespace {

/// The magnitudes of the non-zero parts of a matrix.
struct Extent {
    double largest = 0;
    double smallest = std::numeric_limits<double>::infinity();
    bool is_diagonal = true;

    void include(double part) {
        if (part != 0) {
            largest = std::max(largest, std::abs(part));
            smallest = std::min(smallest, std::abs(part));
        }
    }
};

template <typename C>
Extent extent_of(std::span<const C> data, std::size_t order) {
    Extent extent;
    for (std::size_t row = 0; row < order; ++row) {
        for (std::size_t column = 0; column < order; ++column) {
            const C element = data[row * order + column];
            extent.include(real_part(element));
            extent.include(imaginary_part(element));
            extent.is_diagonal &= row == column || element == C(0);
        }
    }
    return extent;
}

/// In vectors, which the compiler does not make of a loop over doubles by itself.
template <typename C>
bool has_subnormal_part(std::span<const C> data) {
    constexpr std::size_t lanes = 2;
    const __m128d sign = _mm_set1_pd(-0.0);
    const __m128d least_normal = _mm_set1_pd(std::numeric_limits<double>::min());
    const auto* const parts = reinterpret_cast<const double*>(data.data());
    const std::size_t count = data.size_bytes() / sizeof(double);
    __m128d found = _mm_setzero_pd();
    const auto include = [&](__m128d next) {
        const __m128d magnitudes = _mm_andnot_pd(sign, next);
        found = _mm_or_pd(found, _mm_and_pd(_mm_cmplt_pd(magnitudes, least_normal),
                                            _mm_cmpgt_pd(magnitudes, _mm_setzero_pd())));
    };
    for (std::size_t i = 0; i + lanes <= count; i += lanes) {
        include(_mm_loadu_pd(parts + i));
    }
    if (count % lanes != 0) {
        include(_mm_load_sd(parts + count - 1));
    }
    return _mm_movemask_pd(found) != 0;
}

} // namespace

template <typename C>
double normalise_determinant(std::span<C> data, std::size_t order, const char* operation) {
    using Limits = std::numeric_limits<double>;
    if (!has_subnormal_part<C>(data)) {
        return 0;
    }
    const Extent extent = extent_of<C>(data, order);
    if (extent.is_diagonal) {
        return 0;
    }
    const int largest = std::ilogb(extent.largest);
    const int smallest = std::ilogb(extent.smallest);
    // Two digits of a mantissa above the smallest normal number, and even, so that a square root
    // scales exactly.
    constexpr int target = Limits::min_exponent - 1 + Limits::digits;
    const int shift = (std::max(target - smallest, -largest) + 1) & ~1;
    if (largest + shift >= Limits::max_exponent) {
        fail(-1, "determinant scaling would overflow", operation,
             std::string(operation) + " - subnormal factorisation range cannot be preserved");
    }
    for (C& element : data) {
        element = scaled(element, shift);
    }
    return static_cast<double>(order) * shift * std::numbers::ln2;
}

template double normalise_determinant(std::span<double>, std::size_t, const char*);
template double normalise_determinant(std::span<std::complex<double>>, std::size_t, const char*);

} // namespace Tessaline::CpuStructured
