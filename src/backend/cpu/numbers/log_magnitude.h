// SPDX-License-Identifier: Apache-2.0
#pragma once

// The logarithm of a complex magnitude.

#include <cmath>
#include <complex>
#include <limits>
#include <utility>

namespace Tessaline::CpuStructured {

/// log|z| without overflow, and without loss where |z| is near 1.
template <typename Real>
Real log_magnitude(std::complex<Real> z) {
    using Limits = std::numeric_limits<Real>;
    Real larger = std::abs(z.real());
    Real smaller = std::abs(z.imag());
    if (larger < smaller) {
        std::swap(larger, smaller);
    }
    if (larger >= Real(0.5) && larger <= 2) {
        // |z|^2 - 1, whose leading digits cancel in larger^2 - 1.
        const Real excess = std::fma(larger - 1, larger + 1, smaller * smaller);
        return Real(0.5) * std::log1p(excess);
    }
    if (std::isfinite(larger) &&
        (larger > Limits::max() / 2 || (larger > 0 && larger < Limits::min()))) {
        const Real real = z.real() / larger;
        const Real imag = z.imag() / larger;
        return std::log(larger) + Real(0.5) * std::log(real * real + imag * imag);
    }
    return std::log(z).real();
}

template <typename Real>
Real log_magnitude(Real value) {
    return std::log(std::abs(value));
}

} // namespace Tessaline::CpuStructured
