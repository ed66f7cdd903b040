// SPDX-License-Identifier: Apache-2.0
#pragma once

// Matrices as the kernels for rotations take them.

#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/simd/tables/rotation_kernels.h"

#include <memory>
#include <vector>

namespace Tessaline::CpuStructured {

/// Rows of doubles that kernels for rotations take: the real parts of a row and then its imaginary
/// parts, padded with zeros to whole blocks
/// of columns and rows. C is double or std::complex<double>.
template <typename C>
class PlanarMatrix {
    static constexpr std::size_t block = rotation_block;
    static constexpr std::size_t planes = is_complex_element<C> ? 2 : 1;
    static constexpr std::size_t line = 64 / sizeof(double); ///< of the cache

  public:
    PlanarMatrix(std::size_t rows, std::size_t columns)
        : padded_columns_((columns + block - 1) / block * block),
          shape_{spread(planes * padded_columns_), padded_columns_},
          memory_((rows + block - 1) / block * block * shape_.stride + line) {
        void* aligned = memory_.data();
        std::size_t space = memory_.size() * sizeof(double);
        first_ = static_cast<double*>(std::align(64, sizeof(double), aligned, space));
    }

    std::size_t padded_columns() const { return padded_columns_; }
    const SimdKernels::PlanarShape& shape() const { return shape_; }
    double* at(std::size_t row, std::size_t column) const {
        return first_ + row * shape_.stride + column;
    }
    C get(std::size_t row, std::size_t column) const {
        const double* element = at(row, column);
        if constexpr (is_complex_element<C>) {
            return {*element, element[shape_.imaginary]};
        } else {
            return *element;
        }
    }
    void set(std::size_t row, std::size_t column, C value) const {
        double* element = at(row, column);
        *element = NumberParts::real_part(value);
        if constexpr (is_complex_element<C>) {
            element[shape_.imaginary] = value.imag();
        }
    }

  private:
    /// Rows a multiple of 512 bytes apart would share few sets of the first-level cache.
    static std::size_t spread(std::size_t stride) {
        return stride % (8 * line) == 0 ? stride + line : stride;
    }

    std::size_t padded_columns_;
    SimdKernels::PlanarShape shape_;
    std::vector<double> memory_;
    double* first_;
};

} // namespace Tessaline::CpuStructured
