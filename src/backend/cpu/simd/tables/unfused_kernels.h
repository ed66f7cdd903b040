// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products without fused operations, compiled for wide vectors: the inner loops of the floating
// kernels. They give the bits of plain loops, but that every NaN they store is the positive quiet
// one. They are serial, check nothing and allocate nothing but a thread's packing memory
// (packing_memory.h).
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include "backend/cpu/simd/tables/transposed_copy.h"

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

/// The columns of A, and the sizes of B, in a Kronecker product.
struct KronExtents {
    Index a_cols;
    Index b_rows;
    Index b_cols;
};

/// Complex terms recover infinities as C99 Annex G does where both of their parts are NaN. What is
/// written overlaps nothing that is read, but may be a block of the same matrix.
///
/// T is float, double or a std::complex of them, interleaved.
template <typename T>
struct UnfusedKernels {
    /// C = A B: each element is the sum over increasing k of A(i, k) B(k, j), from zero.
    void (*multiply)(StridedRows<const T> A, StridedRows<const T> B, StridedRows<T> C,
                     ProductExtents extents);
    /// y = A x: each element is the sum over increasing k of A(i, k) x[k], from zero.
    void (*row_products)(StridedRows<const T> A, const T* x, T* y, Index rows, Index cols);
    /// The rows [begin, end) of the Kronecker product, from `out` on without gaps: element
    /// (i1 b_rows + i2, j1 b_cols + j2) is A(i1, j1) B(i2, j2). For an A of one element the result
    /// may lie where B does.
    void (*kron)(StridedRows<const T> A, StridedRows<const T> B, T* out, KronExtents extents,
                 Index begin, Index end);
    /// out[i] = the sum over increasing t of elements[t step + i], from zero, for `count` of them.
    void (*sum_of_runs)(const T* elements, Index step, Index terms, T* out, Index count);
};

/// Real is float or double. Hypotenuses are those of numbers/hypotenuse.h.
template <typename Real>
struct NormKernels {
    /// The hypotenuse of the norm and the first term, of that and the second one, and so on.
    Real (*prolong_norm)(Real norm, const Real* terms, Index count);
    /// The hypotenuses of the parts of complex elements, which lie in turn.
    void (*magnitudes)(const Real* parts, Real* magnitudes, Index count);
};

/// What ComplexDivisor has of an ordinary divisor.
template <typename Real>
struct ScaledDivisor {
    Real larger_part;
    Real scaled_real;
    Real scaled_imag;
    Real scaled_squared;
};

/// Each element by itself; the result may lie where the operand does. Real is float or double.
template <typename Real>
struct QuotientKernels {
    void (*roots)(const Real* in, Real* out, Index count);
    void (*divide)(const Real* in, Real divisor, Real* out, Index count);
    /// Of `count` complex elements, whose parts lie in turn, by the fast form of ComplexDivisor.
    /// Returns how many are done: before a vector in which that form does not stand it ends.
    Index (*divide_complex)(const Real* in, const ScaledDivisor<Real>& divisor, Real* out,
                            Index count);
};

/// Elements of two bytes, by their bits, as floats, which is exact but for the payload of a NaN;
/// and floats rounded to nearest with ties to even.
struct ConversionKernels {
    void (*widen_binary16)(const std::uint16_t* from, float* to, Index count);
    void (*round_binary16)(const float* from, std::uint16_t* to, Index count);
    void (*widen_bfloat16)(const std::uint16_t* from, float* to, Index count);
    void (*round_bfloat16)(const float* from, std::uint16_t* to, Index count);
    /// Sums in float, rounded once. The result may lie where an operand does.
    void (*add_binary16)(const std::uint16_t* a, const std::uint16_t* b, std::uint16_t* out,
                         Index count);
};

/// Kernels of elements of two bytes a part, which are widened on the way and whose results are not
/// rounded and hold any NaN.
struct StoredKernels {
    /// y = A x as the kernel of that name forms it, the rows of A `stride` elements apart. Complex
    /// sums with two parts of NaN are left to the caller to form anew.
    template <typename T>
    using RowProducts = void (*)(StridedRows<const std::uint16_t> A, const T* x, T* y, Index rows,
                                 Index cols);
    RowProducts<float> row_products_binary16;
    RowProducts<float> row_products_bfloat16;
    RowProducts<std::complex<float>> row_products_complex_binary16;

    /// Sums as the kernel of that name forms them, each part of a complex element by itself.
    using SumOfRuns = void (*)(const std::uint16_t* elements, Index step, Index terms, float* out,
                               Index count);
    SumOfRuns sum_of_runs_binary16;
    SumOfRuns sum_of_runs_bfloat16;
};

/// See copy_transposed().
template <typename Bits>
struct TransposingKernel {
    void (*copy_transposed)(const Bits* source, Index source_stride, Bits* target,
                            Index target_stride, Index rows, Index cols, Bits flipped,
                            bool past_caches);
};

/// The kernels of one instruction set.
struct UnfusedTable : UnfusedKernels<float>,
                      UnfusedKernels<double>,
                      UnfusedKernels<std::complex<float>>,
                      UnfusedKernels<std::complex<double>>,
                      NormKernels<float>,
                      NormKernels<double>,
                      QuotientKernels<float>,
                      QuotientKernels<double>,
                      ConversionKernels,
                      StoredKernels,
                      TransposingKernel<std::uint16_t>,
                      TransposingKernel<std::uint32_t>,
                      TransposingKernel<std::uint64_t>,
                      TransposingKernel<Bits128> {};

extern const UnfusedTable avx256_unfused_table;
extern const UnfusedTable avx512_unfused_table;

/// The table that the processor runs fastest; null where it has none of their instruction sets, and
/// the plain loops serve. An engine asked for by name (see x86_simd.h) decides here too, though the
/// bits are the same.
const UnfusedTable* unfused_table();

template <typename T>
const UnfusedKernels<T>* unfused_kernels() {
    return unfused_table();
}

/// Puts another table, or null, in the place of that one while it lives. For tests: no kernel may
/// run meanwhile on another thread's behalf.
class UnfusedSelection {
  public:
    explicit UnfusedSelection(const UnfusedTable* table);
    UnfusedSelection(const UnfusedSelection&) = delete;
    UnfusedSelection& operator=(const UnfusedSelection&) = delete;
    ~UnfusedSelection();

  private:
    const UnfusedTable* former_;
};

} // namespace Tessaline::SimdKernels
