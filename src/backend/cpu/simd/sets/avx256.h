// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 8 floats. For units compiled for AVX2 only.

#include "backend/cpu/simd/sets/transpose.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace Tessaline::SimdKernels {

// Internal linkage on purpose: whatever is instantiated with this type stays in its unit, where the
// linker cannot put it in the place of code for another instruction set.
namespace {

/// The vocabulary of the kernels: addition, subtraction and multiplication are the operators of
/// Register. Nothing fuses.
struct Avx256 {
    using Component = float;
    using Register = __m256;
    using Mask = __m256i;
    static constexpr std::size_t lanes = 8;
    static constexpr bool fuses = false;
    // Tiles of products: rows, and vectors across, that the 16 registers hold.
    static constexpr std::size_t real_tile_rows = 6;
    static constexpr std::size_t real_tile_vectors = 2;
    static constexpr std::size_t split_tile_rows = 2;
    static constexpr std::size_t split_tile_vectors = 2;
    /// Tiles of row products side by side.
    static constexpr std::size_t row_tiles = 2;

    /// The first `count` lanes, at most all.
    static Mask first_lanes(std::size_t count) {
        static constexpr std::int32_t edge[2 * lanes] = {-1, -1, -1, -1, -1, -1, -1, -1};
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(edge + lanes - count));
    }

    static Register zero() { return _mm256_setzero_ps(); }
    static Register broadcast(float value) { return _mm256_set1_ps(value); }
    static Register load(const float* from) { return _mm256_loadu_ps(from); }
    /// Zero in the lanes outside of the mask, whose memory is not touched.
    static Register load(const float* from, Mask mask) { return _mm256_maskload_ps(from, mask); }
    static void store(float* to, Register value) { _mm256_storeu_ps(to, value); }
    static void store(float* to, Register value, Mask mask) {
        _mm256_maskstore_ps(to, mask, value);
    }
    /// Past the caches; `to` is aligned for a register.
    static void stream(float* to, Register value) { _mm256_stream_ps(to, value); }
    /// With the bits of the mask changed.
    static Register flipped(Register value, Register mask) { return _mm256_xor_ps(value, mask); }
    static Register negated(Register value) { return flipped(value, _mm256_set1_ps(-0.0F)); }
    static Register root(Register value) { return _mm256_sqrt_ps(value); }

    /// A bit for each lane that is NaN.
    static unsigned nan_lanes(Register value) {
        return static_cast<unsigned>(_mm256_movemask_ps(nan_mask(value)));
    }
    static Register with_one_nan(Register value) {
        return _mm256_blendv_ps(value, _mm256_set1_ps(__builtin_nanf("")), nan_mask(value));
    }

    /// The sum of the lanes: the high half onto the low half, then neighbours, twice.
    static float sum(Register value) {
        return sum(_mm_add_ps(_mm256_castps256_ps128(value), _mm256_extractf128_ps(value, 1)));
    }

    static void transpose(Register (&rows)[lanes]) {
        transpose_quads<Avx256>(rows);
        for (std::size_t i = 0; i < 4; ++i) {
            const Register low = rows[i];
            const Register high = rows[4 + i];
            rows[i] = _mm256_permute2f128_ps(low, high, 0x20);
            rows[4 + i] = _mm256_permute2f128_ps(low, high, 0x31);
        }
    }

    /// Lane i of `value` permuted is its lane places[i].
    using Places = __m256i;
    static Places places(const std::uint32_t* places) {
        return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(places));
    }
    static Register permuted(Register value, Places places) {
        return _mm256_permutevar8x32_ps(value, places);
    }

    /// The elements at even and at odd places of a and b, one after the other.
    static Register even_elements(Register a, Register b) {
        return in_order(_mm256_shuffle_ps(a, b, 0x88));
    }
    static Register odd_elements(Register a, Register b) {
        return in_order(_mm256_shuffle_ps(a, b, 0xdd));
    }
    /// The lower and the upper half of what has the elements of a at even and of b at odd places.
    static Register low_alternated(Register a, Register b) {
        return _mm256_permute2f128_ps(unpack_low(a, b), unpack_high(a, b), 0x20);
    }
    static Register high_alternated(Register a, Register b) {
        return _mm256_permute2f128_ps(unpack_low(a, b), unpack_high(a, b), 0x31);
    }

    /// The lower halves of the lanes of a with those of b above them, and the upper ones.
    static Register low_halves(Register a, Register b) {
        return halves_of(_mm256_castps_si256(a), _mm256_slli_epi32(_mm256_castps_si256(b), 16));
    }
    static Register high_halves(Register a, Register b) {
        return halves_of(_mm256_srli_epi32(_mm256_castps_si256(a), 16), _mm256_castps_si256(b));
    }

    // Of each four lanes of both operands.
    static Register unpack_low(Register a, Register b) { return _mm256_unpacklo_ps(a, b); }
    static Register unpack_high(Register a, Register b) { return _mm256_unpackhi_ps(a, b); }
    static Register low_pairs(Register a, Register b) { return _mm256_shuffle_ps(a, b, 0x44); }
    static Register high_pairs(Register a, Register b) { return _mm256_shuffle_ps(a, b, 0xee); }

    // Conversions of elements of two bytes; those of binary16 for units that have F16C as well.
#ifdef __F16C__
    static Register load_binary16(const std::uint16_t* from) {
        return _mm256_cvtph_ps(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
    }
    static void store_binary16(std::uint16_t* to, Register value) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to),
                         _mm256_cvtps_ph(value, _MM_FROUND_TO_NEAREST_INT));
    }
#endif
    static Register load_bfloat16(const std::uint16_t* from) {
        const __m128i upper = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
        return _mm256_castsi256_ps(_mm256_slli_epi32(_mm256_cvtepu16_epi32(upper), 16));
    }
    /// Half of what is cut off, less where the bit above it is even, carries a tie to even. One NaN
    /// and infinity stay what they are.
    static void store_bfloat16(std::uint16_t* to, Register value) {
        const __m256i bits = _mm256_castps_si256(value);
        const __m256i odd = _mm256_and_si256(_mm256_srli_epi32(bits, 16), _mm256_set1_epi32(1));
        const __m256i half = _mm256_add_epi32(odd, _mm256_set1_epi32(0x7fff));
        const __m256i upper = _mm256_srli_epi32(_mm256_add_epi32(bits, half), 16);
        const __m256i pairs = _mm256_permute4x64_epi64(_mm256_packus_epi32(upper, upper), 0xd8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(pairs));
    }

  private:
    static Register halves_of(__m256i low, __m256i high) {
        return _mm256_castsi256_ps(_mm256_blend_epi16(low, high, 0xaa));
    }
    static Register nan_mask(Register value) {
        return _mm256_cmp_ps(value, value, _CMP_UNORD_Q);
    }

    /// Undoes that a shuffle of two vectors takes pairs from them in turn.
    static Register in_order(Register pairs) {
        return _mm256_castpd_ps(_mm256_permute4x64_pd(_mm256_castps_pd(pairs), 0xd8));
    }

    static float sum(__m128 value) {
        value = _mm_hadd_ps(value, value);
        return _mm_cvtss_f32(_mm_hadd_ps(value, value));
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
