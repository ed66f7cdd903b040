// SPDX-License-Identifier: Apache-2.0
#pragma once

// By what candidates for a pivot are compared, without overflow of a complex magnitude.

#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/simd/plain/lu_failures.h"

namespace Tessaline::CpuFallback {

/// |z|, or |z / 2| where |z| exceeds the range.
template <typename Real>
struct PivotMagnitude {
    Real value = 0;
    bool halved = false;

    bool exceeds(const PivotMagnitude& other) const {
        return halved == other.halved ? value > other.value : halved;
    }
};

/// Raises std::invalid_argument for a number that is not finite.
template <typename C>
PivotMagnitude<Component<C>> pivot_magnitude(C candidate) {
    if (!NumberParts::is_finite(candidate)) {
        LuFailures::non_finite_pivot();
    }
    const auto magnitude = std::abs(candidate);
    if constexpr (is_complex_element<C>) {
        if (!std::isfinite(magnitude)) {
            return {std::abs(C(candidate.real() / 2, candidate.imag() / 2)), true};
        }
    }
    return {magnitude, false};
}

} // namespace Tessaline::CpuFallback
