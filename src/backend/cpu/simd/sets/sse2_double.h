// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 2 doubles, which every processor has.

#include <cstddef>
#include <emmintrin.h>

namespace Tessaline::SimdKernels {

namespace {

/// The part of the vocabulary of Avx512Double that kernels for every processor use.
struct Sse2Double {
    using Component = double;
    using Register = __m128d;
    static constexpr std::size_t lanes = 2;

    static Register zero() { return _mm_setzero_pd(); }
    static Register broadcast(double value) { return _mm_set1_pd(value); }
    static Register load(const double* from) { return _mm_loadu_pd(from); }
    static void store(double* to, Register value) { _mm_storeu_pd(to, value); }

    static Register root(Register value) { return _mm_sqrt_pd(value); }
    /// The second one where one of them is NaN.
    static Register larger(Register a, Register b) { return _mm_max_pd(a, b); }
    static Register smaller(Register a, Register b) { return _mm_min_pd(a, b); }

    /// A bit for each lane that is NaN.
    static unsigned nan_lanes(Register value) {
        return static_cast<unsigned>(_mm_movemask_pd(_mm_cmpunord_pd(value, value)));
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
