// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/low_precision.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace Tessaline {
namespace {

using LowPrecisionDetail::binary16_to_float;
using LowPrecisionDetail::float_to_bfloat16;
using LowPrecisionDetail::float_to_binary16;

std::uint32_t bits_of(float value) {
    return std::bit_cast<std::uint32_t>(value);
}

float from_bits(std::uint32_t bits) {
    return std::bit_cast<float>(bits);
}

/// Calls check(value) for the float with these bits, its neighbours and their negatives.
template <typename Check>
void around(std::uint32_t bits, const Check& check) {
    for (const std::uint32_t neighbour : {bits - 1, bits, bits + 1}) {
        check(from_bits(neighbour));
        check(from_bits(neighbour ^ 0x80000000U));
    }
}

/// A sweep over all exponents and signs with mantissas that never repeat.
template <typename Check>
void across_all_floats(const Check& check) {
    std::uint32_t bits = 0;
    for (int i = 0; i < 1 << 21; ++i, bits += 0x9e3779b9U) {
        check(from_bits(bits));
    }
}

/// The compiler's own binary16 is the oracle. It keeps the payload of a NaN, of which the contract
/// keeps none.
void expect_binary16(float value) {
    const auto found = float_to_binary16(value);
    if (std::isnan(value)) {
        ASSERT_EQ(found, std::signbit(value) ? 0xfe00 : 0x7e00) << std::hex << bits_of(value);
    } else {
        ASSERT_EQ(found, std::bit_cast<std::uint16_t>(static_cast<_Float16>(value)))
            << std::hexfloat << value;
    }
}

TEST(Binary16, WidensEveryPatternLikeTheCompiler) {
    for (std::uint32_t pattern = 0; pattern <= 0xffff; ++pattern) {
        const auto bits = static_cast<std::uint16_t>(pattern);
        const auto compilers = static_cast<float>(std::bit_cast<_Float16>(bits));
        const std::uint32_t expected = std::isnan(compilers)
                                           ? (std::signbit(compilers) ? 0xffc00000U : 0x7fc00000U)
                                           : bits_of(compilers);
        ASSERT_EQ(bits_of(binary16_to_float(bits)), expected) << std::hex << pattern;
        ASSERT_EQ(bits_of(static_cast<float>(Float16::from_bits(bits))), expected);
    }
}

TEST(Binary16, RoundsLikeTheCompilerAroundEveryValueAndEveryTie) {
    for (std::uint32_t pattern = 0; pattern < 0x7c00; ++pattern) {
        const float value = binary16_to_float(static_cast<std::uint16_t>(pattern));
        // Past the largest value the next one would be 65536, were the exponent not infinity's.
        const float next = pattern == 0x7bff
                               ? 65536.0F
                               : binary16_to_float(static_cast<std::uint16_t>(pattern + 1));
        around(bits_of(value), expect_binary16);
        around(bits_of(value / 2 + next / 2), expect_binary16);
    }
    across_all_floats(expect_binary16);
    around(0x7f800000U, expect_binary16); // infinity and its neighbours
    static_assert(Float16(1.5F).bits == 0x3e00);
}

/// The nearer of the two bfloat16 around a finite value, found by exact subtraction in double; the
/// one with even bits on a tie.
std::uint16_t nearest_bfloat16(float value) {
    const auto below = static_cast<std::uint16_t>(bits_of(value) >> 16U);
    const auto above = static_cast<std::uint16_t>(below + 1U);
    const auto magnitude = [](std::uint16_t bits) {
        // One step beyond the largest value counts as a power of two, not as infinity.
        return (bits & 0x7fffU) == 0x7f80U
                   ? 0x1p128
                   : std::abs(static_cast<double>(from_bits(std::uint32_t{bits} << 16U)));
    };
    const double exact = std::abs(static_cast<double>(value));
    const double to_below = exact - magnitude(below);
    const double to_above = magnitude(above) - exact;
    if (to_below == to_above) {
        return (below & 1U) == 0 ? below : above;
    }
    return to_below < to_above ? below : above;
}

void expect_bfloat16(float value) {
    const auto found = float_to_bfloat16(value);
    if (std::isnan(value)) {
        ASSERT_EQ(found, std::signbit(value) ? 0xffc0 : 0x7fc0) << std::hex << bits_of(value);
    } else if (std::isinf(value)) {
        ASSERT_EQ(found, value > 0 ? 0x7f80 : 0xff80);
    } else {
        ASSERT_EQ(found, nearest_bfloat16(value)) << std::hexfloat << value;
    }
}

TEST(BinaryFloat16, RoundsToNearestWithTiesToEven) {
    for (std::uint32_t pattern = 0; pattern <= 0xffff; ++pattern) {
        around(pattern << 16U | 0x8000U, expect_bfloat16);
        around(pattern << 16U | 1U, expect_bfloat16);
    }
    across_all_floats(expect_bfloat16);
    static_assert(BFloat16(1.0F).bits == 0x3f80);
    static_assert(static_cast<float>(BFloat16::from_bits(0xc040)) == -3.0F);
}

TEST(Complex32Element, HoldsItsPartsInOrderAndRoundsEach) {
    static_assert(sizeof(Complex32) == 4 && alignof(Complex32) == 2);
    static_assert(std::is_trivially_copyable_v<Complex32> && Complex32{}.imag.bits == 0);
    const Complex32 element(std::complex<float>(1.0F, -65520.0F));
    EXPECT_EQ(std::bit_cast<std::uint32_t>(element), 0xfc003c00U);
    EXPECT_EQ(static_cast<std::complex<float>>(element),
              std::complex<float>(1.0F, -std::numeric_limits<float>::infinity()));
}

} // namespace
} // namespace Tessaline
