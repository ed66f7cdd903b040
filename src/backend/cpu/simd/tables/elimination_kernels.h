// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts of a blocked LU factorisation that are no products, compiled for wide vectors. Matrices
// are column-major, and each element takes the operations of plain elimination in their order.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include "backend/cpu/simd/plain/block_sizes.h"
#include "backend/cpu/simd/tables/built_in_complex.h"
#include "backend/cpu/simd/tables/unfused_kernels.h"

namespace Tessaline::SimdKernels {

/// Why an elimination ended.
enum class EliminationEnd { complete, singular, non_finite, vanished_multiplier };

/// How far an elimination came.
struct EliminationProgress {
    Index steps = 0; ///< complete ones
    EliminationEnd end = EliminationEnd::complete;
    /// For a vanished multiplier its row: the step after the complete ones has its pivot and is
    /// made in the rows above.
    Index vanished_row = 0;
};

/// The upper triangle of a column-major matrix.
template <typename T>
struct UpperTriangle {
    const T* data;
    Index stride;
    Index order;
};

/// Divides an element of a right-hand side, of which all terms are subtracted, by the diagonal of
/// its row. May raise.
template <typename T>
using DivideByDiagonal = BuiltInValue<T> (*)(BuiltInValue<T> value, BuiltInValue<T> diagonal,
                                             Index row);

/// What is done with triangles of factors. T is float, double or a std::complex of them; complex
/// products recover infinities as C99 Annex G does.
template <typename T>
struct TriangleKernels {
    /// C = C - A B, for blocks stored by columns whose transposes these are (see StridedRows): the
    /// terms, each an element of B times one of A, in increasing inner index. Blocks may be parts
    /// of one matrix, but C overlaps no other. Every NaN becomes the positive quiet one.
    void (*subtract_product)(StridedRows<const T> A, StridedRows<const T> B, StridedRows<T> C,
                             ProductExtents extents);
    /// B = L^-1 B for B of `elimination_block` rows and the unit lower triangle L.
    void (*solve_triangle)(const T* L, Index l_stride, T* B, Index b_stride, Index columns);
    /// b = L^-1 b for the unit lower triangle L of some order.
    void (*substitute_forward)(const T* L, Index stride, T* b, Index order);
    /// b = U^-1 b, terms in increasing column.
    void (*substitute_backward)(const UpperTriangle<T>& U, T* b, DivideByDiagonal<T> divide);
};

/// For T float or double. Complex types have EliminationKernels<std::complex<Real>>.
template <typename T>
struct EliminationKernels : TriangleKernels<T> {
    /// Eliminates the columns of a panel of `rows` rows, with partial pivoting, the upper one of
    /// equal candidates. `pivots[k]` becomes the row that was swapped with row k, within the panel
    /// alone.
    EliminationProgress (*factor_panel)(T* panel, Index stride, Index rows, Index columns,
                                        Index* pivots);
};

/// A pivot in a column-major panel, with what lies below and right of it.
template <typename T>
struct PivotBlock {
    T* pivot;
    Index stride;
    Index rows;  ///< below the pivot
    Index right; ///< columns right of it
};

/// The quotient of a + ib by a complex number is (a' p + b' q, b' p - a' q) / denominator for
/// a' + ib' = (a + ib) / scale.
template <typename Real>
struct PreparedDivisor {
    Real scale;
    Real p;
    Real q;
    Real denominator;
    /// The parts of a' + ib' are zero or at least this large where that holds.
    Real least;
};

/// What a search answers that found no candidate or cannot tell which is the largest.
inline constexpr Index undecided = ~Index{0};

/// T is std::complex<float> or std::complex<double>.
template <typename Real>
struct EliminationKernels<std::complex<Real>> : TriangleKernels<std::complex<Real>> {
    using T = std::complex<Real>;

    /// The candidate of the largest magnitude: undecided where another comes close to it, and where
    /// squares leave the range. Decided only if all candidates are finite.
    Index (*largest_magnitude)(const T* candidates, Index count);
    /// The first candidate whose larger part is largest. Decided only if all are finite.
    Index (*largest_part)(const T* candidates, Index count);
    /// Divides the elements below a pivot, from row `begin` on, and subtracts their multiples of
    /// the pivot row from the columns right of it, up to a row whose quotient needs a second look:
    /// where it is not finite, scaling made parts too small, or a part is lost or small beside the
    /// other. Returns that row, or the number of rows.
    Index (*eliminate)(const PivotBlock<T>& block, Index begin,
                       const PreparedDivisor<Real>& divisor);
};

/// The SIMD engine's own elimination of complex64. Its products fuse where the engine does.
struct EngineEliminationKernels : TriangleKernels<std::complex<float>> {
    using T = std::complex<float>;

    /// The first candidate with the largest square, NaN passed over. Undecided where the first
    /// candidate is NaN or all squares are zero.
    Index (*largest_square)(const T* candidates, Index count);
    /// Divides the elements below a pivot, from row `begin` on, by quotients formed in double, and
    /// subtracts their multiples of the pivot row from the columns right of it, up to a row whose
    /// quotient is NaN. Returns that row, or the number of rows.
    Index (*eliminate)(const PivotBlock<T>& block, Index begin,
                       const PreparedDivisor<double>& divisor);
};

struct EliminationTable : EliminationKernels<float>,
                          EliminationKernels<double>,
                          EliminationKernels<std::complex<float>>,
                          EliminationKernels<std::complex<double>> {};

extern const EliminationTable avx256_elimination_table;
extern const EliminationTable avx512_elimination_table;

/// The kernels of the implementation in use. Raises what selected_x86_simd() does.
const EliminationTable& elimination_table();
template <typename T>
const EliminationKernels<T>& elimination_kernels() {
    return elimination_table();
}

} // namespace Tessaline::SimdKernels
