// SPDX-License-Identifier: Apache-2.0
#pragma once

// What an orthonormalisation of complex columns consists of, compiled for wide vectors. Each
// element takes the operations of plain loops in their order; infinities are not recovered, so the
// results stand as long as all are finite.
//
// Columns come in two forms. A single one lies contiguous, its imaginary parts behind the real
// ones; a set of them lies by rows, each row as PlanarShape has it, so that vectors run across the
// columns.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include "backend/cpu/simd/tables/rotation_kernels.h"

namespace Tessaline::SimdKernels {

/// Zero is ordinary, and what lies between this and its reciprocal: every step of a norm stays
/// clear of the range's ends, also scaled to parts below 1.
inline constexpr double largest_ordinary = 0x1p200;

struct GramSchmidtKernels {
    /// Takes from the columns [begin, end) of a set, multiples of `column_group`, their parts along
    /// the unit vector q of as many elements as the set has rows.
    void (*project_set)(const double* q, Index q_imaginary, double* set, const PlanarShape& shape,
                        Index rows, Index begin, Index end);
    /// Takes from a single column its parts along the first `count` rows of a basis, one after the
    /// other. `terms` has room for another column.
    void (*project_column)(const double* basis, const PlanarShape& shape, Index count,
                           double* column, double* terms, Index rows);
    /// The magnitudes of the elements of a column, up to a multiple of `column_group`.
    void (*magnitudes)(const double* column, Index imaginary, Index rows, double* magnitudes);
    /// The norm of a column of these magnitudes as a chain of hypotenuses.
    double (*chain_norm)(const double* magnitudes, Index count);
    /// Divides a column by a number. False, and nothing is done, where a part is not ordinary.
    bool (*divide_ordinary)(double* column, Index imaginary, Index rows, double divisor);
};

extern const GramSchmidtKernels avx256_gram_schmidt_kernels;
extern const GramSchmidtKernels avx512_gram_schmidt_kernels;

/// The kernels of the implementation in use. Raises what selected_x86_simd() does.
const GramSchmidtKernels& gram_schmidt_kernels();

} // namespace Tessaline::SimdKernels
