// SPDX-License-Identifier: Apache-2.0
#pragma once

// The function of numbers/hypotenuse.h for the lanes of vectors of doubles, with its bits.

#include <cstddef>
#include <cstdint>

namespace Tessaline::SimdKernels {

namespace {

/// Integers as wide as the elements of a vector.
template <typename Set>
using LaneBits = decltype(typename Set::Register{} < typename Set::Register{});

template <typename Set>
typename Set::Register absolute(typename Set::Register value) {
    using Register = typename Set::Register;
    return Register(LaneBits<Set>(value) & INT64_MAX);
}
/// A magnitude with the sign of another number.
template <typename Set>
typename Set::Register with_sign(typename Set::Register magnitude, typename Set::Register sign) {
    using Register = typename Set::Register;
    using Bits = LaneBits<Set>;
    return Register((Bits(magnitude) & INT64_MAX) | (Bits(sign) & INT64_MIN));
}

/// A bit for each lane of the result of a comparison.
template <typename Set, typename Truth>
unsigned true_lanes(Truth truth) {
    return Set::nan_lanes(truth ? Set::broadcast(__builtin_nan("")) : Set::zero());
}

/// The lanes of `others` by the library's function.
template <typename Set>
[[gnu::noinline]] typename Set::Register
with_plain_hypotenuses(typename Set::Register result, typename Set::Register x,
                       typename Set::Register y, unsigned others) {
    for (std::size_t lane = 0; lane < Set::lanes; ++lane) {
        if ((others >> lane & 1U) != 0) {
            result[lane] = __builtin_hypot(x[lane], y[lane]);
        }
    }
    return result;
}

template <typename Set>
[[gnu::always_inline]] inline typename Set::Register hypotenuse(typename Set::Register x,
                                                                typename Set::Register y) {
    using Register = typename Set::Register;
    x = absolute<Set>(x);
    y = absolute<Set>(y);
    // One of them is NaN where x or y is.
    const Register a = Set::larger(x, y);
    const Register b = Set::smaller(y, x);
    const Register root = Set::root(a * a + b * b);
    const Register above_b = root - b;
    const Register near_half = a * (2 * above_b - a) + (above_b - 2 * (a - b)) * above_b;
    const Register above_a = root - a;
    const Register near_whole =
        2 * above_a * (a - 2 * b) + ((4 * above_a - b) * b + above_a * above_a);
    const Register excess = root <= 2 * b ? near_half : near_whole;
    const auto is_whole = b <= a * 0x1p-50;
    const Register result = is_whole ? a : root - excess / (2 * root);
    const auto ordinary = ((a <= 0x1p500) & (b >= 0x1p-450)) | is_whole;
    if (const unsigned others = true_lanes<Set>(~ordinary); others != 0) [[unlikely]] {
        return with_plain_hypotenuses<Set>(result, x, y, others);
    }
    return result;
}

} // namespace

} // namespace Tessaline::SimdKernels
