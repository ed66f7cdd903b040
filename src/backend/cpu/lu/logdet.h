// SPDX-License-Identifier: Apache-2.0
#pragma once

// The logarithm of a determinant, from LU factors.

#include "backend/cpu/numbers/log_magnitude.h"
#include "backend/cpu/numbers/number_parts.h"
#include "tessaline/storage/kernel_views.h"

#include <numbers>

namespace Tessaline::CpuFallback {

/// The argument of a product of complex numbers, in the principal range whatever their number.
template <typename Real>
class Phase {
  public:
    explicit Phase(Real start) : value_(start) {}

    void multiply(std::complex<Real> factor) {
        // Scaled first, so that the magnitude neither overflows nor underflows.
        const auto scaled = NumberParts::divided(factor, NumberParts::largest_part(factor));
        value_ *= NumberParts::divided(scaled, std::abs(scaled));
        value_ = NumberParts::divided(value_, std::abs(value_));
    }
    Real argument() const { return std::atan2(value_.imag(), value_.real()); }

  private:
    std::complex<Real> value_;
};

/// log(det A) of the factored matrix: the logarithm of its magnitude, summed along the diagonal of
/// U, and its argument, which is 0 or pi for real T. A zero on the diagonal gives minus infinity.
template <typename P, typename T>
std::complex<Component<T>> logdet(LuDecompView<const P, const T> lu) {
    using Real = Component<T>;
    const bool odd_swaps = *lu.swap_count % 2 != 0;
    Real logarithm = 0;
    if constexpr (is_complex_element<T>) {
        Phase<Real> phase(odd_swaps ? Real(-1) : Real(1));
        for (std::uint64_t i = 0; i < lu.size; ++i) {
            const T diagonal = lu.factors[i * lu.size + i];
            logarithm += CpuStructured::log_magnitude(diagonal);
            phase.multiply(diagonal);
        }
        return {logarithm, phase.argument()};
    } else {
        bool negative = odd_swaps;
        for (std::uint64_t i = 0; i < lu.size; ++i) {
            const T diagonal = lu.factors[i * lu.size + i];
            logarithm += std::log(std::abs(diagonal));
            negative ^= std::signbit(diagonal);
        }
        return {logarithm, negative ? std::numbers::pi_v<Real> : Real(0)};
    }
}

} // namespace Tessaline::CpuFallback
