// SPDX-License-Identifier: Apache-2.0
#pragma once

// Power iteration of complex64 as the SIMD engines carry it out, over the row products of an
// engine.
//
// Every unit that includes this gets its own copy of the code, compiled for its instruction set:
// the functions are static and use no inline function of the standard library, or the linker would
// merge copies across instruction sets.

#include "backend/cpu/runtime/stop_point.h"
#include "backend/cpu/simd/plain/scratch_memory.h"
#include "tessaline/storage/kernel_views.h"

#include <complex>

namespace Tessaline::EnginePowerMethods {

/// Below this distance of two iterates the power iteration stops.
inline constexpr float convergence_tolerance = 1e-05F;
inline constexpr int maximum_iterations = 512;
/// A vector of at most this norm is not scaled.
inline constexpr float breakdown_norm = 0x1p-23F;

/// Scales an interleaved vector of `count` elements to unit norm, unless its norm breaks down. The
/// squares are summed in order and unfused, whatever the engine.
static inline void normalise(float* vector, std::uint64_t count) {
    float sum = 0;
    for (std::uint64_t index = 0; index < 2 * count; index += 2) {
        sum += vector[index] * vector[index] + vector[index + 1] * vector[index + 1];
    }
    const float norm = __builtin_sqrtf(sum);
    if (!(norm > breakdown_norm)) {
        return;
    }
    const float factor = 1 / norm;
    for (std::uint64_t index = 0; index < 2 * count; ++index) {
        vector[index] *= factor;
    }
}

static inline float distance(const float* x, const float* y, std::uint64_t count) {
    float sum = 0;
    for (std::uint64_t index = 0; index < 2 * count; index += 2) {
        const float real = y[index] - x[index];
        const float imag = y[index + 1] - x[index + 1];
        sum += real * real + imag * imag;
    }
    return __builtin_sqrtf(sum);
}

static inline void copy_by_rows(DenseComplexIntlvMatrixView<const std::complex<float>> matrix,
                                float* copy) {
    const float* elements = reinterpret_cast<const float*>(matrix.data);
    const bool by_rows = matrix.layout == DataMatrixLayout::row_major;
    for (std::uint64_t i = 0; i < matrix.rows; ++i) {
        for (std::uint64_t j = 0; j < matrix.cols; ++j) {
            const std::uint64_t from = by_rows ? i * matrix.cols + j : j * matrix.rows + i;
            *copy++ = elements[2 * from];
            *copy++ = elements[2 * from + 1];
        }
    }
}

/// The last iterate of power iteration from the vector of ones, in whatever phase it comes, every
/// NaN of it the positive quiet one. Iterates are compared as they are, so an eigenvalue that is
/// not positive makes the iteration run to its limit, which is no error. The matrix is square, of
/// the vector's order.
///
/// Kernels has a static multiply_row(row, vector, count, result), which sets the two parts at
/// `result` to the product of a row with a vector, both interleaved, of `count` elements.
template <typename Kernels>
static void principal_eigenvect(DenseComplexIntlvMatrixView<const std::complex<float>> matrix,
                                DenseComplexIntlvVectorView<std::complex<float>> vector) {
    const std::uint64_t n = vector.size;
    const Scratch<float> scratch(2 * n * n + 4 * n);
    float* const rows = scratch.data();
    float* x = rows + 2 * n * n;
    float* y = x + 2 * n;
    copy_by_rows(matrix, rows);
    for (std::uint64_t index = 0; index < 2 * n; index += 2) {
        x[index] = 1;
        x[index + 1] = 0;
    }
    normalise(x, n);
    bool is_settled = false;
    for (int iteration = 0; iteration < maximum_iterations && !is_settled; ++iteration) {
        stop_point();
        for (std::uint64_t i = 0; i < n; ++i) {
            Kernels::multiply_row(rows + 2 * i * n, x, n, y + 2 * i);
        }
        normalise(y, n);
        is_settled = distance(x, y, n) < convergence_tolerance;
        float* const former = x;
        x = y;
        y = former;
    }
    float* const result = reinterpret_cast<float*>(vector.data);
    for (std::uint64_t index = 0; index < 2 * n; ++index) {
        result[index] = x[index] == x[index] ? x[index] : __builtin_nanf("");
    }
}

} // namespace Tessaline::EnginePowerMethods
