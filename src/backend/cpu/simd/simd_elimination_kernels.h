// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parts of a blocked LU factorisation that are no products, compiled for wide vectors. Matrices
// are column-major, and each element takes the operations of plain elimination in their order.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include <complex>
#include <cstdint>

namespace Tessaline::SimdKernels {

using Index = std::uint64_t;

/// Columns of a panel at most, and rows of a triangle that a kernel solves with.
inline constexpr Index elimination_block = 8;

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

/// For T float or double; for complex types see below.
template <typename T>
struct EliminationKernels {
    /// Eliminates the columns of a panel of `rows` rows, with partial pivoting, the upper one of
    /// equal candidates. `pivots[k]` becomes the row that was swapped with row k, within the panel
    /// alone.
    EliminationProgress (*factor_panel)(T* panel, Index stride, Index rows, Index columns,
                                        Index* pivots);
    /// B = L^-1 B for B of `elimination_block` rows and the unit lower triangle L.
    void (*solve_triangle)(const T* L, Index l_stride, T* B, Index b_stride, Index columns);
    /// b = L^-1 b for the unit lower triangle L of some order.
    void (*substitute_forward)(const T* L, Index stride, T* b, Index order);
    /// Products of the elements of `elimination_block` rows with those of x, by rows.
    void (*multiply_rows)(const T* rows, Index stride, const T* x, Index columns, T* products,
                          Index products_stride);
};

/// A complex divisor d as ComplexDivisor forms it: its larger part, d over that, and the squared
/// magnitude of the latter.
template <typename Real>
struct ScaledDivisor {
    Real larger_part;
    Real real;
    Real imag;
    Real squared;
};

/// T is std::complex<float> or std::complex<double>.
template <typename Real>
struct EliminationKernels<std::complex<Real>> {
    /// Divides elements in their order up to those whose quotient needs a second look: where
    /// scaling left the normal range, or a part is lost or small beside the other. Returns how many
    /// are done. The divisor is finite and not zero, and scaling kept its parts normal.
    Index (*divide)(std::complex<Real>* elements, Index count, const ScaledDivisor<Real>& divisor);
    /// As for real matrices. Products recover infinities as C99 Annex G does.
    void (*solve_triangle)(const std::complex<Real>* L, Index l_stride, std::complex<Real>* B,
                           Index b_stride, Index columns);
    void (*substitute_forward)(const std::complex<Real>* L, Index stride, std::complex<Real>* b,
                               Index order);
};

struct EliminationTable : EliminationKernels<float>,
                          EliminationKernels<double>,
                          EliminationKernels<std::complex<float>>,
                          EliminationKernels<std::complex<double>> {};

extern const EliminationTable avx256_elimination_table;
extern const EliminationTable avx512_elimination_table;

/// The kernels that belong to the products of unfused_kernels(), or null like these.
template <typename T>
const EliminationKernels<T>* elimination_kernels();

extern template const EliminationKernels<float>* elimination_kernels();
extern template const EliminationKernels<double>* elimination_kernels();
extern template const EliminationKernels<std::complex<float>>* elimination_kernels();
extern template const EliminationKernels<std::complex<double>>* elimination_kernels();

} // namespace Tessaline::SimdKernels
