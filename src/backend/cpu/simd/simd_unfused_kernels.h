// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products without fused operations, compiled for wide vectors: the inner loops of the floating
// kernels and of the LU factorisations. They give the bits of plain loops, but that every NaN they
// store is the positive quiet one. They are serial and check nothing.
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include <complex>
#include <cstdint>

namespace Tessaline::SimdKernels {

using Index = std::uint64_t;

/// A matrix, or a block of one, of contiguous rows that start `stride` elements apart. What is
/// stored by columns is the transpose of such a matrix; as products commute bit for bit, a caller
/// with columns swaps the factors.
template <typename T>
struct StridedRows {
    T* data;
    Index stride;
};

/// The sizes of C, `rows` by `cols`, and of what is summed over for each of its elements.
struct ProductExtents {
    Index rows;
    Index inner;
    Index cols;
};

/// T is float, double or a std::complex of them, interleaved.
template <typename T>
struct UnfusedKernels {
    using Product = void (*)(StridedRows<const T> A, StridedRows<const T> B, StridedRows<T> C,
                             ProductExtents extents);

    /// C = A B: each element is the sum over increasing k of A(i, k) B(k, j), from zero.
    Product multiply;
    /// C = C - A B: the same terms, each subtracted from the element in turn.
    ///
    /// In both, each complex term recovers infinities as C99 Annex G does where both of its parts
    /// are NaN. C overlaps neither factor; they may all be blocks of one matrix.
    Product subtract_product;
};

/// One instruction set's kernels for every type.
struct UnfusedTable : UnfusedKernels<float>,
                      UnfusedKernels<double>,
                      UnfusedKernels<std::complex<float>>,
                      UnfusedKernels<std::complex<double>> {};

extern const UnfusedTable avx256_unfused_table;
extern const UnfusedTable avx512_unfused_table;

/// The kernels for T that the processor runs fastest; null where it has none of their instruction
/// sets, and the plain loops serve. An engine asked for by name (see x86_simd.h) decides here too,
/// though the bits are the same.
template <typename T>
const UnfusedKernels<T>* unfused_kernels();

extern template const UnfusedKernels<float>* unfused_kernels();
extern template const UnfusedKernels<double>* unfused_kernels();
extern template const UnfusedKernels<std::complex<float>>* unfused_kernels();
extern template const UnfusedKernels<std::complex<double>>* unfused_kernels();

} // namespace Tessaline::SimdKernels
