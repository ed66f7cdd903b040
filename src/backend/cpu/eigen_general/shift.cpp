// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/shift.h"

#include "backend/cpu/eigen_general/failures.h"
#include "backend/cpu/eigen_general/limits.h"

#include <array>
#include <cmath>

namespace Tessaline::CpuFallback {

namespace {

/// The offsets of exceptional shifts in turn, in units of the power of two of the last row and
/// column. Neither is a multiple of the other, so that they break different symmetries.
constexpr std::array<Complex, 2> exceptional_offsets{Complex(0.75, 0.25), Complex(-0.4375, 0.3125)};

} // namespace

Complex wilkinson_shift(Complex a, Complex b, Complex c, Complex d) {
    const auto largest = largest_exponent(std::array{a, b, c, d});
    if (!largest) {
        return 0;
    }
    const int exponent = *largest + 1;
    for (Complex* element : {&a, &b, &c, &d}) {
        *element = scaled(*element, -exponent);
    }
    const Complex difference = a - d;
    const Complex root = std::sqrt(difference * difference + (4.0 * b) * c);
    const Complex lower = ((a + d) - root) * 0.5;
    const Complex upper = ((a + d) + root) * 0.5;
    return scaled(std::abs(lower - d) < std::abs(upper - d) ? lower : upper, exponent);
}

Complex ShiftSequence::next(const SchurForm& schur, std::size_t active) {
    is_exceptional_ = since_exceptional_ == exceptional_shift_interval;
    if (is_exceptional_) {
        return exceptional_shift(schur, active);
    }
    const Complex* corner = &schur.H[(active - 2) * schur.n + active - 2];
    return wilkinson_shift(corner[0], corner[1], corner[schur.n], corner[schur.n + 1]);
}

Complex ShiftSequence::exceptional_shift(const SchurForm& schur, std::size_t active) {
    const std::size_t last = active - 1;
    const Complex diagonal = schur.H[last * schur.n + last];
    const double largest = largest_in_row_and_column(schur, last);
    Complex shift = diagonal;
    if (largest != 0) {
        const Complex offset =
            scaled(exceptional_offsets[exceptional_shifts_ % 2], std::ilogb(largest));
        shift = is_finite(diagonal + offset) ? diagonal + offset : diagonal - offset;
    }
    ++exceptional_shifts_;
    since_exceptional_ = 0;
    return shift;
}

void ShiftSequence::record(bool deflated, std::size_t active) {
    if (deflated) {
        without_deflation_ = 0;
        since_exceptional_ = 0;
        return;
    }
    since_exceptional_ += is_exceptional_ ? 0 : 1;
    if (++without_deflation_ == maximum_iterations) {
        throw_non_convergence(active);
    }
}

} // namespace Tessaline::CpuFallback
