// SPDX-License-Identifier: Apache-2.0
#pragma once

// Element types of two bytes a component. They are storage only: a kernel widens them to float,
// which is exact, computes there and rounds once where it stores. The conversions here define the
// bits; engines may use instructions that give the same ones.

#include "tessaline/export.h"

#include <bit>
#include <complex>
#include <cstdint>

namespace Tessaline {

namespace LowPrecisionDetail {

/// `value` shifted right by `count` of 1 to 31, to nearest with ties to even in the bits shifted
/// out.
constexpr std::uint32_t shift_right_rounded(std::uint32_t value, unsigned count) {
    const std::uint32_t half = 1U << (count - 1);
    const std::uint32_t lost = value & (2 * half - 1);
    const std::uint32_t kept = value >> count;
    return kept + static_cast<std::uint32_t>(lost > half || (lost == half && (kept & 1U) != 0));
}

/// The bits of the binary16 nearest to `value`, ties to even. Overflow gives infinity, a NaN of any
/// payload the quiet NaN 0x7e00 under its sign.
constexpr std::uint16_t float_to_binary16(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    const std::uint32_t sign = bits >> 16U & 0x8000U;
    const auto exponent = static_cast<int>(bits >> 23U & 0xffU);
    const std::uint32_t mantissa = bits & 0x7fffffU;
    // Both formats bias the exponent by half its range less one: 127 and 15.
    const int half_exponent = exponent - 112;
    std::uint32_t magnitude = 0;
    if (exponent == 255) {
        magnitude = mantissa != 0 ? 0x7e00U : 0x7c00U;
    } else if (half_exponent > 30) {
        magnitude = 0x7c00U;
    } else if (half_exponent >= 1) {
        // A carry out of the mantissa raises the exponent, as it should, at most to infinity.
        magnitude =
            shift_right_rounded(static_cast<std::uint32_t>(half_exponent) << 23U | mantissa, 13);
    } else if (half_exponent >= -10) {
        magnitude =
            shift_right_rounded(mantissa | 0x800000U, static_cast<unsigned>(14 - half_exponent));
    }
    return static_cast<std::uint16_t>(sign | magnitude);
}

/// The value of a binary16, exact; a NaN of any payload gives the quiet NaN 0x7fc00000 under its
/// sign.
constexpr float binary16_to_float(std::uint16_t bits) {
    const std::uint32_t sign = (bits & 0x8000U) << 16U;
    const std::uint32_t exponent = bits >> 10U & 0x1fU;
    const std::uint32_t mantissa = bits & 0x3ffU;
    if (exponent == 31) {
        return std::bit_cast<float>(sign | (mantissa != 0 ? 0x7fc00000U : 0x7f800000U));
    }
    if (exponent == 0) {
        const float magnitude = static_cast<float>(mantissa) * 0x1p-24F;
        return std::bit_cast<float>(sign | std::bit_cast<std::uint32_t>(magnitude));
    }
    return std::bit_cast<float>(sign | (exponent + 112) << 23U | mantissa << 13U);
}

/// The bits of the bfloat16 nearest to `value`, ties to even. Overflow gives infinity, a NaN of any
/// payload the quiet NaN 0x7fc0 under its sign.
constexpr std::uint16_t float_to_bfloat16(float value) {
    const auto bits = std::bit_cast<std::uint32_t>(value);
    if ((bits & 0x7fffffffU) > 0x7f800000U) {
        return static_cast<std::uint16_t>((bits >> 16U & 0x8000U) | 0x7fc0U);
    }
    return static_cast<std::uint16_t>((bits + (bits >> 16U & 1U) + 0x7fffU) >> 16U);
}

/// The value of a bfloat16, exact.
constexpr float bfloat16_to_float(std::uint16_t bits) {
    return std::bit_cast<float>(static_cast<std::uint32_t>(bits) << 16U);
}

} // namespace LowPrecisionDetail

/// IEEE 754 binary16.
struct TESSALINE_API Float16 {
    constexpr Float16() = default;
    explicit constexpr Float16(float value) : bits(LowPrecisionDetail::float_to_binary16(value)) {}
    static constexpr Float16 from_bits(std::uint16_t pattern) {
        Float16 result;
        result.bits = pattern;
        return result;
    }
    explicit constexpr operator float() const {
        return LowPrecisionDetail::binary16_to_float(bits);
    }

    std::uint16_t bits = 0;
};

/// The upper half of an IEEE 754 binary32.
struct TESSALINE_API BFloat16 {
    constexpr BFloat16() = default;
    explicit constexpr BFloat16(float value) : bits(LowPrecisionDetail::float_to_bfloat16(value)) {}
    static constexpr BFloat16 from_bits(std::uint16_t pattern) {
        BFloat16 result;
        result.bits = pattern;
        return result;
    }
    explicit constexpr operator float() const {
        return LowPrecisionDetail::bfloat16_to_float(bits);
    }

    std::uint16_t bits = 0;
};

/// A complex number of two binary16 parts.
struct TESSALINE_API Complex32 {
    constexpr Complex32() = default;
    constexpr Complex32(Float16 real_part, Float16 imaginary_part)
        : real(real_part),
          imag(imaginary_part) {}
    explicit constexpr Complex32(std::complex<float> value)
        : real(value.real()),
          imag(value.imag()) {}
    explicit constexpr operator std::complex<float>() const {
        return {static_cast<float>(real), static_cast<float>(imag)};
    }

    Float16 real;
    Float16 imag;
};

} // namespace Tessaline
