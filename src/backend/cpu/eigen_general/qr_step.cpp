// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/qr_step.h"

#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>

namespace Tessaline::CpuFallback {

void QrStep::iterate(SchurForm& schur, std::size_t active, Complex shift, double epsilon) {
    copy_shifted_block(schur, active, shift);
    const auto columns = std::span(columns_).first(active * active);
    gram_schmidt_.orthonormalise(columns, active, epsilon);
    transform(schur, columns, active);
}

// Block and shift are scaled together by a power of two that both survive, so that the subtraction
// alone rounds.
void QrStep::copy_shifted_block(const SchurForm& schur, std::size_t active, Complex shift) {
    const auto block = std::span(columns_).first(active * active);
    copy_transposed(as_bits(schur.H.data()), schur.n, as_bits(block.data()), active, active, active,
                    {}, false);
    const int exponent = exact_scaling_exponent(block, std::span(&shift, 1));
    scale(block, -exponent);
    const Complex scaled_shift = scaled(shift, -exponent);
    for (std::size_t i = 0; i < active; ++i) {
        block[i * active + i] -= scaled_shift;
    }
}

// What G leaves alone is left out of the products: products of finite numbers with its zeros and
// ones change no bit of a sum but the sign of a zero, which is positive in every sum from zero.
void QrStep::transform(SchurForm& schur, std::span<const Complex> columns, std::size_t active) {
    const std::size_t n = schur.n;
    copy_transposed(as_bits(columns.data()), active, as_bits(G_.data()), active, active, active, {},
                    false);
    // H G, in place; rows below the block have nothing in its columns.
    multiply_rows(schur.H, active, n, active);
    // G* times that. What is multiplied with G itself comes before.
    multiply_rows(schur.Z, n, n, active);
    copy_flipped(as_bits(columns.data()), as_bits(G_.data()), columns.size(),
                 imaginary_sign<Complex>());
    multiply(G_.data(), active, schur.H.data(), {active, active, n});
    for (std::size_t index = active * n; index < n * n; ++index) {
        next_[index] = schur.H[index] + Complex(0);
    }
    schur.H.swap(next_);
}

/// The leading rows of a matrix times G.
void QrStep::multiply_rows(std::vector<Complex>& matrix, std::size_t rows, std::size_t n,
                           std::size_t active) {
    multiply(matrix.data(), n, G_.data(), {rows, active, active});
    for (std::size_t i = 0; i < rows; ++i) {
        Complex* row = &matrix[i * n];
        std::copy_n(&next_[i * active], active, row);
        for (std::size_t j = active; j < n; ++j) {
            row[j] += Complex(0);
        }
    }
}

/// `next_` = A B, all by rows without gaps but for A, whose rows are `stride` elements apart.
void QrStep::multiply(const Complex* A, std::size_t stride, const Complex* B,
                      SimdKernels::ProductExtents extents) {
    SimdKernels::unfused_table().complex128.multiply({A, stride}, {B, extents.cols},
                                                     {next_.data(), extents.cols}, extents);
}

} // namespace Tessaline::CpuFallback
