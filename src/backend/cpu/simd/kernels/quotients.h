// SPDX-License-Identifier: Apache-2.0
#pragma once

// Roots of real elements, and quotients of all elements by one; see unfused_kernels.h for what each
// kernel computes.

#include "backend/cpu/simd/kernels/elements.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

#include <limits>

namespace Tessaline::SimdKernels {

template <typename Set>
class Quotients {
    using Real = typename Set::Component;
    using Register = typename Set::Register;

  public:
    static void roots(const Real* in, Real* out, Index count) {
        for_vectors<Set>(count, [=](Index i, auto lanes) {
            store<Set>(out + i, as_result<Set>(Set::root(load<Set>(in + i, lanes))), lanes);
        });
    }

    static void divide(const Real* in, Real divisor, Real* out, Index count) {
        const Register divisors = Set::broadcast(divisor);
        for_vectors<Set>(count, [=](Index i, auto lanes) {
            store<Set>(out + i, as_result<Set>(load<Set>(in + i, lanes) / divisors), lanes);
        });
    }

    static Index divide_complex(const Real* in, const ScaledDivisor<Real>& divisor, Real* out,
                                Index count) {
        using Elements = InterleavedElements<Set>;
        Index i = 0;
        for (; i + Set::lanes <= count; i += Set::lanes) {
            if (!divide_vector<Elements>(in, divisor, out, i, AllLanes{})) {
                return i;
            }
        }
        const bool is_done =
            i == count ||
            divide_vector<Elements>(in, divisor, out, i, Elements::first_lanes(count - i));
        return is_done ? count : i;
    }

  private:
    /// False, and nothing is written, where a quotient does not stand.
    template <typename Elements, typename Lanes>
    [[gnu::always_inline]] static bool divide_vector(const Real* in,
                                                     const ScaledDivisor<Real>& divisor, Real* out,
                                                     Index i, Lanes lanes) {
        const auto scale = Set::broadcast(divisor.larger_part);
        const auto real = Set::broadcast(divisor.scaled_real);
        const auto imag = Set::broadcast(divisor.scaled_imag);
        const auto squared = Set::broadcast(divisor.scaled_squared);
        const Complex<Set> dividend = Elements::load(in, i, lanes);
        const Register a = dividend.real / scale;
        const Register b = dividend.imag / scale;
        const Complex<Set> quotient{(a * real + b * imag) / squared,
                                    (b * real - a * imag) / squared};
        const auto stands = keeps_size(dividend.real, a) & keeps_size(dividend.imag, b) &
                            is_finite(quotient.real) & is_finite(quotient.imag);
        if (Set::nan_lanes(stands ? Set::zero() : Set::broadcast(not_a_number)) != 0) [[unlikely]] {
            return false;
        }
        Elements::store(out, i, quotient, lanes);
        return true;
    }

    static auto keeps_size(Register value, Register scaled) {
        return (value == 0) | (scaled >= least) | (scaled <= -least);
    }
    static auto is_finite(Register value) { return (value <= largest) & (value >= -largest); }

    // Constants, and no functions of the library, of which this unit may not keep copies.
    static constexpr Real least = std::numeric_limits<Real>::min();
    static constexpr Real largest = std::numeric_limits<Real>::max();
    static constexpr Real not_a_number = std::numeric_limits<Real>::quiet_NaN();
};

} // namespace Tessaline::SimdKernels
