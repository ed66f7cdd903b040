// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 4 doubles. For units compiled for AVX2 only.

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace Tessaline::SimdKernels {

// Internal linkage on purpose: whatever is instantiated with this type stays in its unit, where the
// linker cannot put it in the place of code for another instruction set.
namespace {

/// The vocabulary of products that Avx256 has for floats. Nothing fuses.
struct Avx256Double {
    using Component = double;
    using Register = __m256d;
    using Mask = __m256i;
    static constexpr std::size_t lanes = 4;
    static constexpr bool fuses = false;
    static constexpr std::size_t real_tile_rows = 6;
    static constexpr std::size_t real_tile_vectors = 2;
    static constexpr std::size_t split_tile_rows = 2;
    static constexpr std::size_t split_tile_vectors = 2;
    /// Tiles of row products side by side.
    static constexpr std::size_t row_tiles = 4;

    /// The first `count` lanes, at most all.
    static Mask first_lanes(std::size_t count) {
        static constexpr std::int64_t edge[2 * lanes] = {-1, -1, -1, -1};
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(edge + lanes - count));
    }

    static Register zero() { return _mm256_setzero_pd(); }
    static Register broadcast(double value) { return _mm256_set1_pd(value); }
    static Register load(const double* from) { return _mm256_loadu_pd(from); }
    /// Zero in the lanes outside of the mask, whose memory is not touched.
    static Register load(const double* from, Mask mask) { return _mm256_maskload_pd(from, mask); }
    static void store(double* to, Register value) { _mm256_storeu_pd(to, value); }
    static void store(double* to, Register value, Mask mask) {
        _mm256_maskstore_pd(to, mask, value);
    }

    /// Past the caches; `to` is aligned for a register.
    static void stream(double* to, Register value) { _mm256_stream_pd(to, value); }
    /// With the bits of the mask changed.
    static Register flipped(Register value, Register mask) { return _mm256_xor_pd(value, mask); }

    static Register root(Register value) { return _mm256_sqrt_pd(value); }
    /// The second one where one of them is NaN.
    static Register larger(Register a, Register b) { return _mm256_max_pd(a, b); }
    static Register smaller(Register a, Register b) { return _mm256_min_pd(a, b); }

    /// A bit for each lane that is NaN.
    static unsigned nan_lanes(Register value) {
        return static_cast<unsigned>(_mm256_movemask_pd(nan_mask(value)));
    }
    static Register with_one_nan(Register value) {
        return _mm256_blendv_pd(value, _mm256_set1_pd(__builtin_nan("")), nan_mask(value));
    }

    static void transpose(Register (&rows)[lanes]) {
        const Register low_01 = _mm256_unpacklo_pd(rows[0], rows[1]);
        const Register high_01 = _mm256_unpackhi_pd(rows[0], rows[1]);
        const Register low_23 = _mm256_unpacklo_pd(rows[2], rows[3]);
        const Register high_23 = _mm256_unpackhi_pd(rows[2], rows[3]);
        rows[0] = _mm256_permute2f128_pd(low_01, low_23, 0x20);
        rows[1] = _mm256_permute2f128_pd(high_01, high_23, 0x20);
        rows[2] = _mm256_permute2f128_pd(low_01, low_23, 0x31);
        rows[3] = _mm256_permute2f128_pd(high_01, high_23, 0x31);
    }

    /// The transpose with pairs of neighbours for elements.
    static void transpose_pairs(Register (&rows)[lanes / 2]) {
        const Register low = _mm256_permute2f128_pd(rows[0], rows[1], 0x20);
        rows[1] = _mm256_permute2f128_pd(rows[0], rows[1], 0x31);
        rows[0] = low;
    }

    /// Lane i of `value` permuted is its lane places[i]. Halves of a lane move together.
    using Places = __m256i;
    static Places places(const std::uint32_t* places) {
        const __m256i first =
            _mm256_cvtepu32_epi64(_mm_loadu_si128(reinterpret_cast<const __m128i*>(places)));
        const __m256i low = _mm256_slli_epi64(first, 1);
        return _mm256_or_si256(low,
                               _mm256_slli_epi64(_mm256_add_epi64(low, _mm256_set1_epi64x(1)), 32));
    }
    static Register permuted(Register value, Places places) {
        return _mm256_castps_pd(_mm256_permutevar8x32_ps(_mm256_castpd_ps(value), places));
    }

    /// The elements at even and at odd places of a and b, one after the other.
    static Register even_elements(Register a, Register b) {
        return _mm256_permute4x64_pd(_mm256_unpacklo_pd(a, b), 0xd8);
    }
    static Register odd_elements(Register a, Register b) {
        return _mm256_permute4x64_pd(_mm256_unpackhi_pd(a, b), 0xd8);
    }
    /// The lower and the upper half of what has the elements of a at even and of b at odd places.
    static Register low_alternated(Register a, Register b) {
        return _mm256_permute2f128_pd(_mm256_unpacklo_pd(a, b), _mm256_unpackhi_pd(a, b), 0x20);
    }
    static Register high_alternated(Register a, Register b) {
        return _mm256_permute2f128_pd(_mm256_unpacklo_pd(a, b), _mm256_unpackhi_pd(a, b), 0x31);
    }

  private:
    static Register nan_mask(Register value) { return _mm256_cmp_pd(value, value, _CMP_UNORD_Q); }
};

} // namespace

} // namespace Tessaline::SimdKernels
