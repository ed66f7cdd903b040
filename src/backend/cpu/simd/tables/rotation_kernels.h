// SPDX-License-Identifier: Apache-2.0
#pragma once

// Plane rotations of the rows of a matrix, compiled for wide vectors. They round each operation and
// give the same bits with every instruction set.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include "backend/cpu/simd/plain/block_sizes.h"

#include <complex>
#include <cstdint>

namespace Tessaline::SimdKernels {

using Index = std::uint64_t;

/// Takes an element u of a common row and an element v of another one to c u - conj(s) v and
/// c v + s u.
struct Rotation {
    double c;
    double s_real;
    double s_imag;
};

/// The rotations of a common row with rows of a block, in the order of these.
struct BlockRotations {
    unsigned rows = 0; ///< a bit for each that is rotated
    Rotation of_row[rotation_block];
};

/// How rows of doubles lie: `stride` apart, the imaginary parts of a row `imaginary` doubles behind
/// its real parts.
struct PlanarShape {
    Index stride;
    Index imaginary;
};

/// Searches for rotations side by side, in `rotation_block` lanes: each has a common row of a
/// Hermitian matrix and a block of rows on its diagonal, and all are independent. Elements of the
/// common row and of the block are those in the columns of the block, [column][lane] and
/// [row][column][lane] with the row below the column. Imaginary parts stand for complex matrices.
struct alignas(64) RotationLanes {
    using Lanes = double[rotation_block];

    // The rows [first, end) of the block take part.
    Lanes first;
    Lanes end;

    Lanes common_diagonal;
    Lanes common_real[rotation_block];
    Lanes common_imag[rotation_block];
    Lanes diagonal[rotation_block];
    Lanes block_real[rotation_block][rotation_block];
    Lanes block_imag[rotation_block][rotation_block];

    // The rotation that was found last.
    Lanes c;
    Lanes s_real;
    Lanes s_imag;
};

/// C is double or std::complex<double>, whose products recover infinities as C99 Annex G does.
template <typename C>
struct RotationKernels {
    /// Rotates a common row and the rows of a block in the columns from those that the pointers
    /// point to on.
    void (*rotate)(double* common, double* block, const PlanarShape& shape,
                   const BlockRotations& rotations, Index columns);
    /// rotate() in `rotation_block` columns for a block whose rows lie as columns, conjugated.
    void (*rotate_adjoint)(double* common, double* adjoint, const PlanarShape& shape,
                           const BlockRotations& rotations);
    /// rotate() in the first columns of a block, up to `columns` of them.
    void (*rotate_leading)(double* common, double* block, const PlanarShape& shape,
                           const BlockRotations& rotations, Index columns);
    /// In each lane, finds the rotation of the common row with row `row` of the block that makes
    /// the element of both zero, applies it to the diagonal and to the columns of the block, and
    /// stores that zero. An element that is small against the geometric mean of its diagonal
    /// elements stays: its lane is left alone. Returns a bit for each lane with a rotation.
    unsigned (*find_rotations)(RotationLanes& lanes, Index row, double tolerance);
};

struct RotationTable : RotationKernels<double>, RotationKernels<std::complex<double>> {};

extern const RotationTable avx256_rotation_table;
extern const RotationTable avx512_rotation_table;

/// The kernels of the implementation in use. Raises what selected_x86_simd() does.
const RotationTable& rotation_kernels();

} // namespace Tessaline::SimdKernels
