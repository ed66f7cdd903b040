// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the structured solvers do with their input before they start. They work on a row-major copy
// in double or std::complex<double>, whatever the policy of the operands.

#include "tessaline/storage/element_traits.h"

#include <cstddef>
#include <span>

namespace Tessaline::CpuStructured {

/// Checks a square row-major matrix: every part of every element is finite, and if `hermitian` each
/// pair of elements across the diagonal, scaled by its largest part, is conjugate to within
/// `tolerance` a part. The diagonal is its own pair, so it must be real. `operation` opens each
/// message. Raises std::invalid_argument.
template <typename C>
void validate(std::span<const C> data, std::size_t order, bool hermitian, double tolerance,
              const char* operation);

/// Makes a row-major matrix Hermitian by its lower triangle and the real parts of its diagonal.
template <typename C>
void mirror_lower_triangle(std::span<C> data, std::size_t order);

extern template void validate(std::span<const double>, std::size_t, bool, double, const char*);
extern template void validate(std::span<const std::complex<double>>, std::size_t, bool, double,
                              const char*);
extern template void mirror_lower_triangle(std::span<double>, std::size_t);
extern template void mirror_lower_triangle(std::span<std::complex<double>>, std::size_t);

} // namespace Tessaline::CpuStructured
