// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 8 doubles. For units compiled for AVX512F and AVX512DQ.

#include <cstddef>
#include <immintrin.h>

namespace Tessaline::SimdKernels {

// Internal linkage on purpose: whatever is instantiated with this type stays in its unit, where the
// linker cannot put it in the place of code for another instruction set.
namespace {

/// The vocabulary of products that Avx512 has for floats.
struct Avx512Double {
    using Component = double;
    using Register = __m512d;
    using Mask = __mmask8;
    static constexpr std::size_t lanes = 8;
    static constexpr bool fuses = true;
    static constexpr std::size_t real_tile_rows = 6;
    static constexpr std::size_t real_tile_vectors = 4;
    static constexpr std::size_t split_tile_rows = 4;
    static constexpr std::size_t split_tile_vectors = 2;
    /// Tiles of row products side by side.
    static constexpr std::size_t row_tiles = 1;

    /// The first `count` lanes, at most all.
    static Mask first_lanes(std::size_t count) { return static_cast<Mask>((1U << count) - 1); }

    static Register zero() { return _mm512_setzero_pd(); }
    static Register broadcast(double value) { return _mm512_set1_pd(value); }
    static Register load(const double* from) { return _mm512_loadu_pd(from); }
    /// Zero in the lanes outside of the mask, whose memory is not touched.
    static Register load(const double* from, Mask mask) {
        return _mm512_maskz_loadu_pd(mask, from);
    }
    static void store(double* to, Register value) { _mm512_storeu_pd(to, value); }
    static void store(double* to, Register value, Mask mask) {
        _mm512_mask_storeu_pd(to, mask, value);
    }

    /// Past the caches; `to` is aligned for a register.
    static void stream(double* to, Register value) { _mm512_stream_pd(to, value); }
    /// With the bits of the mask changed.
    static Register flipped(Register value, Register mask) { return _mm512_xor_pd(value, mask); }

    static Register root(Register value) { return _mm512_sqrt_pd(value); }
    /// The second one where one of them is NaN.
    static Register larger(Register a, Register b) { return _mm512_max_pd(a, b); }
    static Register smaller(Register a, Register b) { return _mm512_min_pd(a, b); }

    /// A bit for each lane that is NaN.
    static unsigned nan_lanes(Register value) {
        return _mm512_cmp_pd_mask(value, value, _CMP_UNORD_Q);
    }
    static Register with_one_nan(Register value) {
        return _mm512_mask_mov_pd(value, static_cast<Mask>(nan_lanes(value)),
                                  _mm512_set1_pd(__builtin_nan("")));
    }

    static void transpose(Register (&rows)[lanes]) {
        const Register low[] = {
            _mm512_unpacklo_pd(rows[0], rows[1]), _mm512_unpacklo_pd(rows[2], rows[3]),
            _mm512_unpacklo_pd(rows[4], rows[5]), _mm512_unpacklo_pd(rows[6], rows[7])};
        const Register high[] = {
            _mm512_unpackhi_pd(rows[0], rows[1]), _mm512_unpackhi_pd(rows[2], rows[3]),
            _mm512_unpackhi_pd(rows[4], rows[5]), _mm512_unpackhi_pd(rows[6], rows[7])};
        transpose_quarters(low, rows[0], rows[2], rows[4], rows[6]);
        transpose_quarters(high, rows[1], rows[3], rows[5], rows[7]);
    }

    /// The transpose with pairs of neighbours for elements.
    static void transpose_pairs(Register (&rows)[lanes / 2]) {
        const Register before[] = {rows[0], rows[1], rows[2], rows[3]};
        transpose_quarters(before, rows[0], rows[1], rows[2], rows[3]);
    }

    /// Lane i of `value` permuted is its lane places[i].
    using Places = __m512i;
    static Places places(const std::uint32_t* places) {
        return _mm512_cvtepu32_epi64(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(places)));
    }
    static Register permuted(Register value, Places places) {
        return _mm512_permutexvar_pd(places, value);
    }

    /// The elements at even and at odd places of a and b, one after the other.
    static Register even_elements(Register a, Register b) {
        return _mm512_permutex2var_pd(a, _mm512_setr_epi64(0, 2, 4, 6, 8, 10, 12, 14), b);
    }
    static Register odd_elements(Register a, Register b) {
        return _mm512_permutex2var_pd(a, _mm512_setr_epi64(1, 3, 5, 7, 9, 11, 13, 15), b);
    }
    /// The lower and the upper half of what has the elements of a at even and of b at odd places.
    static Register low_alternated(Register a, Register b) {
        return _mm512_permutex2var_pd(a, _mm512_setr_epi64(0, 8, 1, 9, 2, 10, 3, 11), b);
    }
    static Register high_alternated(Register a, Register b) {
        return _mm512_permutex2var_pd(a, _mm512_setr_epi64(4, 12, 5, 13, 6, 14, 7, 15), b);
    }

  private:
    /// The four quarters of four vectors, transposed.
    static void transpose_quarters(const Register (&rows)[4], Register& first, Register& second,
                                   Register& third, Register& fourth) {
        const Register low_upper = _mm512_shuffle_f64x2(rows[0], rows[1], 0x44);
        const Register low_lower = _mm512_shuffle_f64x2(rows[2], rows[3], 0x44);
        const Register high_upper = _mm512_shuffle_f64x2(rows[0], rows[1], 0xee);
        const Register high_lower = _mm512_shuffle_f64x2(rows[2], rows[3], 0xee);
        first = _mm512_shuffle_f64x2(low_upper, low_lower, 0x88);
        second = _mm512_shuffle_f64x2(low_upper, low_lower, 0xdd);
        third = _mm512_shuffle_f64x2(high_upper, high_lower, 0x88);
        fourth = _mm512_shuffle_f64x2(high_upper, high_lower, 0xdd);
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
