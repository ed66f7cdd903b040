// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/reductions.h"

#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/operands.h"
#include "backend/cpu/numbers/hypotenuse.h"

#include <algorithm>

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

/// The chain of hypotenuses of a norm and the magnitudes of more elements.
template <typename Value>
Component<Value> plain_norm(Component<Value> norm, const Value* elements, std::uint64_t count) {
    for (std::uint64_t i = 0; i < count; ++i) {
        if constexpr (is_complex_element<Value>) {
            norm = hypotenuse(norm, hypotenuse(elements[i]));
        } else {
            norm = hypotenuse(norm, elements[i]);
        }
    }
    return norm;
}

/// The chain of plain_norm() by vectors.
template <typename Real>
Real norm_by_kernel(const SimdKernels::NormKernels<Real>& kernels, Real norm, const Real* terms,
                    std::uint64_t count) {
    return kernels.prolong_norm(norm, terms, count);
}
template <typename Real>
Real norm_by_kernel(const SimdKernels::NormKernels<Real>& kernels, Real norm,
                    const std::complex<Real>* elements, std::uint64_t count) {
    for_conversion_pieces(0, count, [&](std::uint64_t first, std::uint64_t piece) {
        Real magnitudes[conversion_piece];
        kernels.magnitudes(reinterpret_cast<const Real*>(elements + first), magnitudes, piece);
        norm = kernels.prolong_norm(norm, magnitudes, piece);
    });
    return norm;
}

/// Fewer elements are sooner done than made into a vector.
constexpr std::uint64_t shortest_norm_by_kernel = 8;

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
void FloatingReductions<T>::inner(const VectorPairReduction<T>& operands,
                                  const UnfusedTable& kernels) {
    const auto [a, b] = operands.in;
    ComputeOf<T> sum{};
    for_widened_pieces<T>(a, kernels,
                          [&](std::uint64_t first, const auto* of_a, std::uint64_t count) {
                              ComputeOf<T> so_far = sum;
                              for_widened_pieces<T>(b.subspan(first, count), kernels,
                                                    [&](auto, const auto* of_b, auto) {
                                                        for (std::uint64_t i = 0; i < count; ++i) {
                                                            so_far += conjugated(of_a[i]) * of_b[i];
                                                        }
                                                    });
                              sum = so_far;
                          });
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
void FloatingReductions<T>::norm(const VectorReduction<T>& operands, const UnfusedTable& kernels) {
    using Real = Component<ComputeOf<T>>;
    const auto& norms = SimdKernels::norm_kernels<Real>(kernels);
    const bool is_short = operands.in.size() < shortest_norm_by_kernel;
    Real norm = 0;
    for_widened_pieces<T>(operands.in, kernels,
                          [&](auto, const ComputeOf<T>* elements, std::uint64_t count) {
                              norm = is_short ? plain_norm(norm, elements, count)
                                              : norm_by_kernel(norms, norm, elements, count);
                          });
    operands.result.store(norm);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingReductions<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
