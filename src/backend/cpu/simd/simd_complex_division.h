// SPDX-License-Identifier: Apache-2.0
#pragma once

// Division of the elements of a column by one complex number, with the bits of ComplexDivisor (see
// floating_complex_division.h) where its fast form stands.

#include "backend/cpu/simd/simd_elements.h"
#include "backend/cpu/simd/simd_elimination_kernels.h"

#include <limits>

namespace Tessaline::SimdKernels {

namespace {

template <typename Set>
class ComplexDivision {
    using Real = typename Set::Component;
    using Register = typename Set::Register;
    using Integers = decltype(Register{} < Register{});
    using Elements = InterleavedElements<Set>;
    // Constants, and no functions of the library, of which this unit may not keep copies.
    static constexpr Real largest = std::numeric_limits<Real>::max();
    static constexpr Real smallest_normal = std::numeric_limits<Real>::min();
    static constexpr Real not_a_number = std::numeric_limits<Real>::quiet_NaN();
    /// A power of two, which scales exactly or, at the end of the range, rounds.
    static constexpr Real epsilon = static_cast<Real>(std::numeric_limits<double>::epsilon());

  public:
    static Index divide(std::complex<Real>* elements, Index count,
                        const ScaledDivisor<Real>& divisor) {
        const Register larger_part = Set::broadcast(divisor.larger_part);
        const Register c = Set::broadcast(divisor.real);
        const Register d = Set::broadcast(divisor.imag);
        const Register squared = Set::broadcast(divisor.squared);
        Real* const parts = reinterpret_cast<Real*>(elements);
        Index i = 0;
        for (; i + Set::lanes <= count; i += Set::lanes) {
            const Complex<Set> dividend = Elements::load(parts, i, AllLanes{});
            const Register a = dividend.real / larger_part;
            const Register b = dividend.imag / larger_part;
            const Complex<Set> quotient{(a * c + b * d) / squared, (b * c - a * d) / squared};
            const Integers stands = keeps_size(dividend.real, a) & keeps_size(dividend.imag, b) &
                                    keeps_both(magnitude(quotient.real), magnitude(quotient.imag));
            const Register lost = stands ? Set::zero() : Set::broadcast(not_a_number);
            if (Set::nan_lanes(lost) != 0) {
                break;
            }
            Elements::store(parts, i, quotient, AllLanes{});
        }
        return i;
    }

  private:
    static Register magnitude(Register value) { return value < 0 ? -value : value; }

    static Integers keeps_size(Register value, Register scaled) {
        return (value == 0) | (magnitude(scaled) >= smallest_normal);
    }

    /// Whether both are finite and neither is lost beside the other.
    static Integers keeps_both(Register real, Register imag) {
        return (real > epsilon * imag) & (imag > epsilon * real) & (real <= largest) &
               (imag <= largest);
    }
};

} // namespace

} // namespace Tessaline::SimdKernels
