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

inline float plain_hypotenuse(float x, float y) {
    return __builtin_hypotf(x, y);
}
inline double plain_hypotenuse(double x, double y) {
    return __builtin_hypot(x, y);
}

/// The lanes of `others` by the library's function.
template <typename Set, typename Vector>
[[gnu::noinline]] Vector with_plain_hypotenuses(Vector result, Vector x, Vector y,
                                                unsigned others) {
    for (std::size_t lane = 0; lane < Set::lanes; ++lane) {
        if ((others >> lane & 1U) != 0) {
            result[lane] = plain_hypotenuse(x[lane], y[lane]);
        }
    }
    return result;
}

/// What a vector of hypotenuses needs not to leave the range on its way. One of the numbers may
/// also be 0, or any share below 2^-50 of the other.
inline constexpr double largest_leg = 0x1p500;
inline constexpr double smallest_leg = 0x1p-450;

/// Of numbers that are not negative. Lanes outside of that range are wrong.
template <typename Set>
[[gnu::always_inline]] inline typename Set::Register ordinary_hypotenuse(typename Set::Register x,
                                                                         typename Set::Register y) {
    using Register = typename Set::Register;
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
    return b <= a * 0x1p-50 ? a : root - excess / (2 * root);
}

template <typename Set>
[[gnu::always_inline]] inline typename Set::Register hypotenuse(typename Set::Register x,
                                                                typename Set::Register y) {
    using Register = typename Set::Register;
    x = absolute<Set>(x);
    y = absolute<Set>(y);
    const Register result = ordinary_hypotenuse<Set>(x, y);
    const Register a = Set::larger(x, y);
    const Register b = Set::smaller(y, x);
    const auto ordinary = ((a <= largest_leg) & (b >= smallest_leg)) | (b <= a * 0x1p-50);
    if (const unsigned others = true_lanes<Set>(~ordinary); others != 0) [[unlikely]] {
        return with_plain_hypotenuses<Set>(result, x, y, others);
    }
    return result;
}

/// As many numbers of type Real as a vector of doubles has lanes, none of them negative.
template <typename Set, typename Real>
struct LegsOf;

template <typename Set>
struct LegsOf<Set, double> {
    using Vector = typename Set::Register;
    using Words [[gnu::vector_size(sizeof(Vector))]] = std::uint64_t; ///< without overflow
    /// Of squares, so that each number is in range.
    static constexpr double largest_sum = largest_leg * largest_leg;

    static Vector load(const double* from) { return absolute<Set>(Set::load(from)); }
    static void store(double* to, Vector value) { Set::store(to, value); }
    static Vector widened(Vector value) { return value; }
    static Vector narrowed(Vector value) { return value; }
    static bool any(Words words) { return true_lanes<Set>(words != 0) != 0; }
    static bool any_small(Vector value) {
        return true_lanes<Set>((value < smallest_leg) & (value != 0)) != 0;
    }
    static Vector ordinary_hypotenuse(Vector x, Vector y) {
        return SimdKernels::ordinary_hypotenuse<Set>(x, y);
    }
    static Vector hypotenuse(Vector x, Vector y) { return SimdKernels::hypotenuse<Set>(x, y); }
};

/// Neither squares of floats nor their sum leave the range of doubles.
template <typename Set>
struct LegsOf<Set, float> {
    using Register = typename Set::Register;
    using Vector [[gnu::vector_size(sizeof(Register) / 2)]] = float;
    using Words [[gnu::vector_size(sizeof(Register) / 2)]] = std::uint32_t;
    static constexpr double largest_sum = __DBL_MAX__;

    static Vector load(const float* from) {
        Vector value;
        __builtin_memcpy(&value, from, sizeof value);
        return Vector(Words(value) & INT32_MAX);
    }
    static void store(float* to, Vector value) { __builtin_memcpy(to, &value, sizeof value); }
    static Register widened(Vector value) { return __builtin_convertvector(value, Register); }
    static Vector narrowed(Register value) { return __builtin_convertvector(value, Vector); }
    static bool any(Words words) {
        return true_lanes<Set>(__builtin_convertvector(words, LaneBits<Set>) != 0) != 0;
    }
    static bool any_small(Vector) { return false; }
    static Vector ordinary_hypotenuse(Vector x, Vector y) {
        const Register wide_x = widened(x);
        const Register wide_y = widened(y);
        return narrowed(Set::root(wide_x * wide_x + wide_y * wide_y));
    }
    static Vector hypotenuse(Vector x, Vector y) {
        const Vector result = ordinary_hypotenuse(x, y);
        const auto is_finite = widened(result) <= __FLT_MAX__;
        if (const unsigned others = true_lanes<Set>(~is_finite); others != 0) [[unlikely]] {
            return with_plain_hypotenuses<Set>(result, x, y, others);
        }
        return result;
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
