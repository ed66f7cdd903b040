// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a kernel gets of an operand: pointers and sizes, passed by value. T carries constness, so
// that an input is a view of const elements. Nothing here has a member function, so that units for
// different instruction sets may share the header.
//
// A matrix has no stride: element (i, j) is at i * cols + j in row-major and at j * rows + i in
// column-major order.

#include "tessaline/catalogue/data_layout.h"

#include <type_traits>

namespace Tessaline {

template <typename T>
struct RealScalarView {
    T* data;
};

template <typename T>
struct ComplexScalarView {
    T* real;
    T* imag;
};

template <typename T>
struct DenseRealVectorView {
    T* data;
    std::uint64_t size;
};

template <typename T>
struct DenseComplexIntlvVectorView {
    T* data;
    std::uint64_t size;
};

template <typename T>
struct DenseComplexSplitVectorView {
    T* real;
    T* imag;
    std::uint64_t size;
};

template <typename T>
struct DenseRealMatrixView {
    T* data;
    std::uint64_t rows;
    std::uint64_t cols;
    DataMatrixLayout layout;
};

template <typename T>
struct DenseComplexIntlvMatrixView {
    T* data;
    std::uint64_t rows;
    std::uint64_t cols;
    DataMatrixLayout layout;
};

template <typename T>
struct DenseComplexSplitMatrixView {
    T* real;
    T* imag;
    std::uint64_t rows;
    std::uint64_t cols;
    DataMatrixLayout layout;
};

/// Column-major factors of a square matrix of order `size`. P is the pivot type, const for a
/// factorisation that is only read.
template <typename P, typename T>
struct LuDecompView {
    P* pivots;  ///< `size` pivots
    T* factors; ///< size * size elements
    std::conditional_t<std::is_const_v<P>, const std::uint64_t, std::uint64_t>* swap_count;
    std::uint64_t size;
};

template <typename T>
struct EigenValsView {
    T* eigenvalues;  ///< `size` elements
    T* eigenvectors; ///< size * size elements
    std::uint64_t size;
};

} // namespace Tessaline
