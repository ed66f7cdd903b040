// SPDX-License-Identifier: Apache-2.0
#pragma once

// Products without fused operations, compiled for wide vectors: the inner loops of the floating
// kernels. They give the bits of plain loops, but that every NaN they store is the positive quiet
// one. They are serial, check nothing and allocate nothing but a thread's packing memory
// (scratch_memory.h).
//
// Included by units for every instruction set, so nothing here is more than a declaration.

#include "backend/cpu/numbers/element_bits.h"

#include <complex>
#include <cstdint>
#include <type_traits>

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

/// Elements of two bytes of one format, by their bits, and floats. Widening is exact but for the
/// payload of a NaN. What is not rounded may be any NaN.
struct StoredKernels {
    void (*widen)(const std::uint16_t* from, float* to, Index count);
    /// To nearest with ties to even.
    void (*round)(const float* from, std::uint16_t* to, Index count);

    /// y = A x as UnfusedKernels form it, the rows of A `stride` elements apart.
    template <typename T>
    using RowProducts = void (*)(StridedRows<const std::uint16_t> A, const T* x, T* y, Index rows,
                                 Index cols);
    RowProducts<float> row_products;
    /// As UnfusedKernels form them, each part of a complex element by itself.
    void (*sum_of_runs)(const std::uint16_t* elements, Index step, Index terms, float* out,
                        Index count);
};

struct Binary16Kernels : StoredKernels {
    /// Sums with two parts of NaN are left to the caller to form anew.
    RowProducts<std::complex<float>> complex_row_products;
    /// Sums in float, rounded once. The result may lie where an operand does.
    void (*add)(const std::uint16_t* a, const std::uint16_t* b, std::uint16_t* out, Index count);
};

/// See copy_transposed().
template <typename Bits>
using TransposingKernel = void (*)(const Bits* source, Index source_stride, Bits* target,
                                   Index target_stride, Index rows, Index cols, Bits flipped,
                                   bool past_caches);

/// The kernels of one instruction set.
struct UnfusedTable {
    UnfusedKernels<float> float32;
    UnfusedKernels<double> float64;
    UnfusedKernels<std::complex<float>> complex64;
    UnfusedKernels<std::complex<double>> complex128;

    NormKernels<float> float32_norms;
    NormKernels<double> float64_norms;
    QuotientKernels<float> float32_quotients;
    QuotientKernels<double> float64_quotients;

    Binary16Kernels binary16;
    StoredKernels bfloat16;

    TransposingKernel<std::uint16_t> transpose_16_bits;
    TransposingKernel<std::uint32_t> transpose_32_bits;
    TransposingKernel<std::uint64_t> transpose_64_bits;
    TransposingKernel<Bits128> transpose_128_bits;
};

/// Those for elements of type T.
template <typename T>
const UnfusedKernels<T>& unfused_kernels(const UnfusedTable& table) {
    if constexpr (std::is_same_v<T, float>) {
        return table.float32;
    } else if constexpr (std::is_same_v<T, double>) {
        return table.float64;
    } else if constexpr (std::is_same_v<T, std::complex<float>>) {
        return table.complex64;
    } else {
        return table.complex128;
    }
}
template <typename Real>
const NormKernels<Real>& norm_kernels(const UnfusedTable& table) {
    if constexpr (std::is_same_v<Real, float>) {
        return table.float32_norms;
    } else {
        return table.float64_norms;
    }
}
template <typename Real>
const QuotientKernels<Real>& quotient_kernels(const UnfusedTable& table) {
    if constexpr (std::is_same_v<Real, float>) {
        return table.float32_quotients;
    } else {
        return table.float64_quotients;
    }
}
template <typename Bits>
TransposingKernel<Bits> transposing_kernel(const UnfusedTable& table) {
    if constexpr (sizeof(Bits) == 2) {
        return table.transpose_16_bits;
    } else if constexpr (sizeof(Bits) == 4) {
        return table.transpose_32_bits;
    } else if constexpr (sizeof(Bits) == 8) {
        return table.transpose_64_bits;
    } else {
        return table.transpose_128_bits;
    }
}

extern const UnfusedTable avx256_unfused_table;
extern const UnfusedTable avx512_unfused_table;

/// In the place of a table's own for processors with AVX2 that do not convert binary16.
extern const Binary16Kernels avx256_integer_binary16_kernels;

/// The table of the implementation in use, though all give the same bits. Raises what
/// selected_x86_simd() does.
const UnfusedTable& unfused_table();

} // namespace Tessaline::SimdKernels
