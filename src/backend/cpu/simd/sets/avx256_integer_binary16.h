// SPDX-License-Identifier: Apache-2.0
#pragma once

// Vectors of 8 floats for processors that do not convert binary16.

#include "backend/cpu/simd/sets/avx256.h"

namespace Tessaline::SimdKernels {

namespace {

/// Converts by the bits, and by additions and products that are exact or round as the conversion.
struct Avx256IntegerBinary16 : Avx256 {
    static Register load_binary16(const std::uint16_t* from) {
        const __m256i bits =
            _mm256_cvtepu16_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(from)));
        const __m256i magnitude = _mm256_and_si256(bits, _mm256_set1_epi32(0x7fff));
        const __m256i sign = _mm256_slli_epi32(_mm256_xor_si256(bits, magnitude), 16);
        // The exponent in its place, 112 too small, which for subnormals only a product mends.
        const Register small = _mm256_castsi256_ps(_mm256_slli_epi32(magnitude, 13));
        const Register value = small * broadcast(0x1p112F);
        const __m256i not_finite =
            _mm256_and_si256(_mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x7bff)),
                             _mm256_set1_epi32(0x7f800000));
        // As the instruction does: a signalling NaN would win over an infinity in a hypotenuse.
        const __m256i quiet = _mm256_and_si256(
            _mm256_cmpgt_epi32(magnitude, _mm256_set1_epi32(0x7c00)), _mm256_set1_epi32(0x400000));
        const __m256i above = _mm256_or_si256(_mm256_or_si256(sign, not_finite), quiet);
        return _mm256_or_ps(value, _mm256_castsi256_ps(above));
    }

    /// NaN becomes the quiet one under its sign.
    static void store_binary16(std::uint16_t* to, Register value) {
        const Register size =
            _mm256_and_ps(value, _mm256_castsi256_ps(_mm256_set1_epi32(0x7fffffff)));
        const __m256i bits = _mm256_castps_si256(size);
        const __m256i sign =
            _mm256_srli_epi32(_mm256_xor_si256(_mm256_castps_si256(value), bits), 16);
        // Added to a half, what is below the least normal number ends in the last places.
        const __m256i half = _mm256_castps_si256(broadcast(0.5F));
        const __m256i subnormal =
            _mm256_sub_epi32(_mm256_castps_si256(size + broadcast(0.5F)), half);
        // Half of what is cut off, less where the bit above it is even, carries a tie to even.
        const __m256i odd = _mm256_and_si256(_mm256_srli_epi32(bits, 13), _mm256_set1_epi32(1));
        const __m256i carried =
            _mm256_add_epi32(bits, _mm256_add_epi32(odd, _mm256_set1_epi32(0xfff)));
        const __m256i normal =
            _mm256_sub_epi32(_mm256_srli_epi32(carried, 13), _mm256_set1_epi32(112 << 10));
        const __m256i infinite = _mm256_set1_epi32(0x7c00);
        __m256i rounded = _mm256_blendv_epi8(
            normal, subnormal, _mm256_cmpgt_epi32(_mm256_castps_si256(broadcast(0x1p-14F)), bits));
        rounded = _mm256_min_epi32(rounded, infinite);
        const __m256i is_nan = _mm256_castps_si256(_mm256_cmp_ps(value, value, _CMP_UNORD_Q));
        rounded = _mm256_or_si256(rounded, _mm256_and_si256(is_nan, _mm256_set1_epi32(0x7e00)));
        const __m256i stored = _mm256_or_si256(rounded, sign);
        const __m256i pairs = _mm256_permute4x64_epi64(_mm256_packus_epi32(stored, stored), 0xd8);
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(pairs));
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
