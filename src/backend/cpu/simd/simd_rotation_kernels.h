// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plane rotations of the rows of a matrix, compiled for wide vectors and, for other processors, for
// the narrow ones of every processor. They round each operation and give the same bits everywhere.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include <complex>
#include <cstdint>

namespace Tessaline::SimdKernels {

using Index = std::uint64_t;

/// Rows are rotated in blocks of this many, and columns come in multiples of it.
inline constexpr Index rotation_block = 8;

/// Takes an element u of a common row and an element v of row `row` to c u - conj(s) v and
/// c v + s u.
struct RowRotation {
    Index row; ///< within its block
    double c;
    double s_real;
    double s_imag;
};

/// How rows of doubles lie: `stride` apart, the imaginary parts of a row `imaginary` doubles behind
/// its real parts.
struct PlanarShape {
    Index stride;
    Index imaginary;
};

/// C is double or std::complex<double>, whose products recover infinities as C99 Annex G does.
template <typename C>
struct RotationKernels {
    /// Applies `count` rotations in their order to the common row and the rows of a block, in the
    /// columns from those that the pointers point to on.
    void (*rotate)(double* common, double* block, const PlanarShape& shape,
                   const RowRotation* rotations, Index count, Index columns);
    /// The same in `rotation_block` columns for a block whose rows lie as columns, conjugated.
    void (*rotate_adjoint)(double* common, double* adjoint, const PlanarShape& shape,
                           const RowRotation* rotations, Index count);
};

struct RotationTable : RotationKernels<double>, RotationKernels<std::complex<double>> {};

extern const RotationTable baseline_rotation_table;
extern const RotationTable avx256_rotation_table;
extern const RotationTable avx512_rotation_table;

/// The kernels of the widest instruction set that the processor has.
const RotationTable& rotation_kernels();

} // namespace Tessaline::SimdKernels
