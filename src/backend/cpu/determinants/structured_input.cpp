// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/structured_input.h"

#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/numbers/number_parts.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>
#include <stdexcept>
#include <string>

namespace Tessaline::CpuStructured {

using namespace NumberParts;

namespace {

/// Whether `lower` is the conjugate of `upper`, relative to the larger of all parts.
template <typename C>
bool are_conjugate(C lower, C upper, double tolerance) {
    const double scale = std::max(largest_part(lower), largest_part(upper));
    if (scale == 0) {
        return true;
    }
    const C difference = divided(lower, scale) - conjugated(divided(upper, scale));
    return largest_part(difference) <= tolerance;
}

/// target(j, i) is the conjugate of source(i, j), for a source of `rows` by `cols` elements within
/// a matrix whose rows are `stride` elements long, like those of the target.
template <typename C>
void copy_conjugate_transposed(const C* source, C* target, std::size_t stride, std::size_t rows,
                               std::size_t cols) {
    copy_transposed(as_bits(source), stride, as_bits(target), stride, rows, cols,
                    imaginary_sign<C>(), false);
}

} // namespace

template <typename C>
void validate(std::span<const C> data, std::size_t order, bool hermitian, double tolerance,
              const char* operation) {
    for (const C& element : data) {
        if (!is_finite(element)) {
            throw std::invalid_argument(std::string(operation) +
                                        " - input must contain only finite entries");
        }
    }
    for (std::size_t i = 0; hermitian && i < order; ++i) {
        for (std::size_t j = 0; j <= i; ++j) {
            if (!are_conjugate(data[i * order + j], data[j * order + i], tolerance)) {
                throw std::invalid_argument(std::string(operation) +
                                            " - input must be symmetric/Hermitian at (" +
                                            std::to_string(i) + ", " + std::to_string(j) + ")");
            }
        }
    }
}

template <typename C>
void mirror_lower_triangle(std::span<C> data, std::size_t order) {
    constexpr std::size_t tile = turned_tile;
    for (std::size_t first = 0; first < order; first += tile) {
        const std::size_t end = std::min(first + tile, order);
        C* const rows = &data[first * order];
        for (std::size_t column = 0; column < first; column += tile) {
            copy_conjugate_transposed(rows + column, &data[column * order + first], order,
                                      end - first, tile);
        }
        for (std::size_t i = first; i < end; ++i) {
            data[i * order + i] = real_part(data[i * order + i]);
            for (std::size_t j = first; j < i; ++j) {
                data[j * order + i] = conjugated(data[i * order + j]);
            }
        }
    }
}

template void validate(std::span<const double>, std::size_t, bool, double, const char*);
template void validate(std::span<const std::complex<double>>, std::size_t, bool, double,
                       const char*);
template void mirror_lower_triangle(std::span<double>, std::size_t);
template void mirror_lower_triangle(std::span<std::complex<double>>, std::size_t);

} // namespace Tessaline::CpuStructured
