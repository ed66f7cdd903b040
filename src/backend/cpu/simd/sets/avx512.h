// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 16 floats. For units compiled for AVX512F and AVX512DQ.

#include "backend/cpu/simd/sets/transpose.h"

#include <cstddef>
#include <cstdint>
#include <immintrin.h>

namespace Tessaline::SimdKernels {

// Internal linkage on purpose: whatever is instantiated with this type stays in its unit, where the
// linker cannot put it in the place of code for another instruction set.
namespace {

/// The vocabulary of the kernels: addition, subtraction and multiplication are the operators of
/// Register. Products fuse where a kernel says so.
struct Avx512 {
    using Component = float;
    using Register = __m512;
    using Mask = __mmask16;
    static constexpr std::size_t lanes = 16;
    static constexpr bool fuses = true;
    // Tiles of products: rows, and vectors across, that the 32 registers hold.
    static constexpr std::size_t real_tile_rows = 6;
    static constexpr std::size_t real_tile_vectors = 4;
    static constexpr std::size_t split_tile_rows = 4;
    static constexpr std::size_t split_tile_vectors = 2;
    /// Tiles of row products side by side.
    static constexpr std::size_t row_tiles = 1;

    /// The first `count` lanes, at most all.
    static Mask first_lanes(std::size_t count) { return static_cast<Mask>((1U << count) - 1); }

    static Register zero() { return _mm512_setzero_ps(); }
    static Register broadcast(float value) { return _mm512_set1_ps(value); }
    static Register load(const float* from) { return _mm512_loadu_ps(from); }
    /// Zero in the lanes outside of the mask, whose memory is not touched.
    static Register load(const float* from, Mask mask) { return _mm512_maskz_loadu_ps(mask, from); }
    static void store(float* to, Register value) { _mm512_storeu_ps(to, value); }
    static void store(float* to, Register value, Mask mask) {
        _mm512_mask_storeu_ps(to, mask, value);
    }
    /// Past the caches; `to` is aligned for a register.
    static void stream(float* to, Register value) { _mm512_stream_ps(to, value); }
    /// With the bits of the mask changed.
    static Register flipped(Register value, Register mask) { return _mm512_xor_ps(value, mask); }
    static Register negated(Register value) { return flipped(value, _mm512_set1_ps(-0.0F)); }
    static Register root(Register value) { return _mm512_sqrt_ps(value); }

    /// a b + c and c - a b, rounded once.
    static Register fused_add(Register a, Register b, Register c) {
        return _mm512_fmadd_ps(a, b, c);
    }
    static Register fused_subtract(Register a, Register b, Register c) {
        return _mm512_fnmadd_ps(a, b, c);
    }

    /// a b + c and c - a b, rounded once, in vectors of half the lanes.
    static __m256 fused_add(__m256 a, __m256 b, __m256 c) {
        return _mm512_castps512_ps256(fused_add(whole(a), whole(b), whole(c)));
    }
    static __m256 fused_subtract(__m256 a, __m256 b, __m256 c) {
        return _mm512_castps512_ps256(fused_subtract(whole(a), whole(b), whole(c)));
    }

    /// A bit for each lane that is NaN.
    static unsigned nan_lanes(Register value) {
        return _mm512_cmp_ps_mask(value, value, _CMP_UNORD_Q);
    }
    static Register with_one_nan(Register value) {
        return _mm512_mask_mov_ps(value, static_cast<Mask>(nan_lanes(value)),
                                  _mm512_set1_ps(__builtin_nanf("")));
    }

    /// The sum of the lanes: the high half onto the low half, twice, then neighbours, twice.
    static float sum(Register value) {
        const __m256 half =
            _mm256_add_ps(_mm512_castps512_ps256(value), _mm512_extractf32x8_ps(value, 1));
        const __m128 quarter =
            _mm_add_ps(_mm256_castps256_ps128(half), _mm256_extractf128_ps(half, 1));
        const __m128 pairs = _mm_hadd_ps(quarter, quarter);
        return _mm_cvtss_f32(_mm_hadd_ps(pairs, pairs));
    }

    static void transpose(Register (&rows)[lanes]) {
        transpose_quads<Avx512>(rows);
        for (std::size_t i = 0; i < 4; ++i) {
            // Four by four quarters remain to be transposed.
            const Register low_upper = _mm512_shuffle_f32x4(rows[i], rows[4 + i], 0x44);
            const Register low_lower = _mm512_shuffle_f32x4(rows[8 + i], rows[12 + i], 0x44);
            const Register high_upper = _mm512_shuffle_f32x4(rows[i], rows[4 + i], 0xee);
            const Register high_lower = _mm512_shuffle_f32x4(rows[8 + i], rows[12 + i], 0xee);
            rows[i] = _mm512_shuffle_f32x4(low_upper, low_lower, 0x88);
            rows[4 + i] = _mm512_shuffle_f32x4(low_upper, low_lower, 0xdd);
            rows[8 + i] = _mm512_shuffle_f32x4(high_upper, high_lower, 0x88);
            rows[12 + i] = _mm512_shuffle_f32x4(high_upper, high_lower, 0xdd);
        }
    }

    /// Lane i of `value` permuted is its lane places[i].
    using Places = __m512i;
    static Places places(const std::uint32_t* places) { return _mm512_loadu_si512(places); }
    static Register permuted(Register value, Places places) {
        return _mm512_permutexvar_ps(places, value);
    }

    /// The elements at even and at odd places of a and b, one after the other.
    static Register even_elements(Register a, Register b) {
        const __m512i even =
            _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
        return _mm512_permutex2var_ps(a, even, b);
    }
    static Register odd_elements(Register a, Register b) {
        const __m512i odd =
            _mm512_setr_epi32(1, 3, 5, 7, 9, 11, 13, 15, 17, 19, 21, 23, 25, 27, 29, 31);
        return _mm512_permutex2var_ps(a, odd, b);
    }
    /// The lower and the upper half of what has the elements of a at even and of b at odd places.
    static Register low_alternated(Register a, Register b) {
        const __m512i low =
            _mm512_setr_epi32(0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23);
        return _mm512_permutex2var_ps(a, low, b);
    }
    static Register high_alternated(Register a, Register b) {
        const __m512i high =
            _mm512_setr_epi32(8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31);
        return _mm512_permutex2var_ps(a, high, b);
    }

    /// The lower halves of the lanes of a with those of b above them, and the upper ones.
    static Register low_halves(Register a, Register b) {
        return halves_of(_mm512_castps_si512(a), _mm512_slli_epi32(_mm512_castps_si512(b), 16));
    }
    static Register high_halves(Register a, Register b) {
        return halves_of(_mm512_srli_epi32(_mm512_castps_si512(a), 16), _mm512_castps_si512(b));
    }

    // Conversions of elements of two bytes.
    static Register load_binary16(const std::uint16_t* from) {
        return _mm512_cvtph_ps(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)));
    }
    static void store_binary16(std::uint16_t* to, Register value) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to),
                            _mm512_cvtps_ph(value, _MM_FROUND_TO_NEAREST_INT));
    }
    static Register load_bfloat16(const std::uint16_t* from) {
        const __m256i upper = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from));
        return _mm512_castsi512_ps(_mm512_slli_epi32(_mm512_cvtepu16_epi32(upper), 16));
    }
    /// Half of what is cut off, less where the bit above it is even, carries a tie to even. One NaN
    /// and infinity stay what they are.
    static void store_bfloat16(std::uint16_t* to, Register value) {
        const __m512i bits = _mm512_castps_si512(value);
        const __m512i odd = _mm512_and_si512(_mm512_srli_epi32(bits, 16), _mm512_set1_epi32(1));
        const __m512i half = _mm512_add_epi32(odd, _mm512_set1_epi32(0x7fff));
        const __m512i upper = _mm512_srli_epi32(_mm512_add_epi32(bits, half), 16);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), _mm512_cvtepi32_epi16(upper));
    }

    // Of each four lanes of both operands.
    static Register unpack_low(Register a, Register b) { return _mm512_unpacklo_ps(a, b); }
    static Register unpack_high(Register a, Register b) { return _mm512_unpackhi_ps(a, b); }
    static Register low_pairs(Register a, Register b) { return _mm512_shuffle_ps(a, b, 0x44); }
    static Register high_pairs(Register a, Register b) { return _mm512_shuffle_ps(a, b, 0xee); }

  private:
    static Register whole(__m256 half) { return _mm512_zextps256_ps512(half); }
    static Register halves_of(__m512i low, __m512i high) {
        const __m512i mask = _mm512_set1_epi32(0xffff);
        return _mm512_castsi512_ps(
            _mm512_or_si512(_mm512_and_si512(mask, low), _mm512_andnot_si512(mask, high)));
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
