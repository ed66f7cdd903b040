// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/reductions.h"

#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/operands.h"

#include <algorithm>
#include <cmath>

namespace Tessaline {

namespace {

/// Calls `body(first, elements, count)` with all elements in order, in compute type.
template <typename T, typename Body>
void for_widened_pieces(std::span<const T> in, const UnfusedTable& kernels, const Body& body) {
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        body(0, in.data(), in.size());
    } else {
        for_conversion_pieces(0, in.size(), [&](std::uint64_t first, std::uint64_t count) {
            ComputeOf<T> piece[conversion_piece];
            widen_elements(in.data() + first, piece, count, kernels);
            body(first, piece, count);
        });
    }
}

} // namespace

template <typename T>
void FloatingReductions<T>::sum(const VectorReduction<T>& operands, const UnfusedTable& kernels) {
    ComputeOf<T> sum{};
    for_widened_pieces<T>(operands.in, kernels,
                          [&sum](auto, const ComputeOf<T>* elements, std::uint64_t count) {
                              ComputeOf<T> so_far = sum;
                              for (std::uint64_t i = 0; i < count; ++i) {
                                  so_far += elements[i];
                              }
                              sum = so_far;
                          });
    operands.result.store(sum);
}

template <typename T>
void FloatingReductions<T>::inner(const VectorPairReduction<T>& operands) {
    const auto [a, b] = operands.in;
    ComputeOf<T> sum{};
    for (std::uint64_t i = 0; i < a.size(); ++i) {
        sum += conjugated(widened(a[i])) * widened(b[i]);
    }
    operands.result.store(sum);
}

template <typename T>
void FloatingReductions<T>::trace(const MatrixReduction<T, T>& operands) {
    const auto& matrix = operands.A;
    ComputeOf<T> sum{};
    for (std::uint64_t i = 0; i < std::min(matrix.rows, matrix.cols); ++i) {
        sum += widened(matrix(i, i));
    }
    operands.result.store(sum);
}

template <typename T>
void FloatingReductions<T>::norm(const VectorReduction<T>& operands) {
    Component<ComputeOf<T>> norm = 0;
    for (const T& element : operands.in) {
        norm = std::hypot(norm, std::abs(widened(element)));
    }
    operands.result.store(norm);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingReductions<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
