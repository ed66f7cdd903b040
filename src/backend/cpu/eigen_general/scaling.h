// SPDX-License-Identifier: Apache-2.0
#pragma once

// Exact scaling by powers of two, and norms that do not leave the range: what the general
// eigensolver does to every intermediate, so that only the result can overflow.

#include "backend/cpu/numbers/number_parts.h"

#include <optional>
#include <span>

namespace Tessaline::CpuFallback {

using Complex = std::complex<double>;

using NumberParts::is_finite;
using NumberParts::scaled;

bool are_finite(std::span<const Complex> values);

/// Multiplies by two to `exponent`, rounding where a part leaves the normal range.
void scale(std::span<Complex> values, int exponent);

/// The largest magnitude of a part, without regard to NaN; 0 where there is none.
double largest_part(std::span<const Complex> values);

/// The sum of the magnitudes of all parts, in no particular order.
double sum_of_magnitudes(std::span<const Complex> values);

/// Makes `largest` cover the magnitude of one more value.
void include_magnitude(double& largest, Complex value);

/// The largest binary exponent among the finite parts that are not zero; empty where there is none.
std::optional<int> largest_exponent(std::span<const Complex> values);

/// Makes `largest` cover the parts of one more value.
void include_exponent(std::optional<int>& largest, Complex value);

/// Whether scaling by two to `exponent` gives finite parts that scaling back restores to the bit.
bool survives_scaling(Complex value, int exponent);
bool survive_scaling(std::span<const Complex> values, int exponent);

/// The exponent e to divide by: brings the largest part of `values` into [0.5, 1), or as near to it
/// from the side of no scaling as is exact. Scaling down must be exact for all values and
/// companions, scaling up for the companions, which may be larger than any value.
int exact_scaling_exponent(std::span<const Complex> values,
                           std::span<const Complex> companions = {});

/// The Euclidean norm as a chain of hypot in increasing index.
double chain_norm(std::span<const Complex> values);

/// Scales to unit norm, first by a power of two. False for a zero vector, which stays as it is.
bool normalise(std::span<Complex> values);

} // namespace Tessaline::CpuFallback
