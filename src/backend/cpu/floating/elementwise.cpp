// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/elementwise.h"

#include "backend/cpu/floating/conversions.h"
#include "backend/cpu/floating/loops.h"
#include "backend/cpu/numbers/complex_division.h"
#include "backend/cpu/numbers/element_bits.h"
#include "backend/cpu/simd/tables/transposed_copy.h"

#include <algorithm>

namespace Tessaline {

namespace {

/// out[i] = function(in[i]) over the first input and the output.
template <typename T, typename Function>
void map(const VectorMap<T>& operands, const UnfusedTable& kernels, const Function& function) {
    const std::span<const T> in = operands.in;
    const std::span<T> out = operands.out;
    for_chunks(in.size(), in.size(), [&](std::uint64_t begin, std::uint64_t end) {
        if constexpr (std::is_same_v<T, ComputeOf<T>>) {
            for (std::uint64_t i = begin; i < end; ++i) {
                out[i] = result_as<T>(function(in[i]));
            }
        } else {
            for_conversion_pieces(begin, end, [&](std::uint64_t first, std::uint64_t count) {
                ComputeOf<T> piece[conversion_piece];
                widen_elements(in.data() + first, piece, count, kernels);
                std::transform(piece, piece + count, piece, function);
                store_results(piece, out.data() + first, count, kernels);
            });
        }
    });
}

/// out[i] = function(a[i], b[i]) over both inputs and the output.
template <typename T, typename Function>
void combine(const VectorCombination<T>& operands, const UnfusedTable& kernels,
             const Function& function) {
    const std::span<const T> a = operands.in.a;
    const std::span<const T> b = operands.in.b;
    const std::span<T> out = operands.out;
    for_chunks(a.size(), a.size(), [&](std::uint64_t begin, std::uint64_t end) {
        if constexpr (std::is_same_v<T, ComputeOf<T>>) {
            for (std::uint64_t i = begin; i < end; ++i) {
                out[i] = result_as<T>(function(a[i], b[i]));
            }
        } else {
            for_conversion_pieces(begin, end, [&](std::uint64_t first, std::uint64_t count) {
                ComputeOf<T> of_a[conversion_piece];
                ComputeOf<T> of_b[conversion_piece];
                widen_elements(a.data() + first, of_a, count, kernels);
                widen_elements(b.data() + first, of_b, count, kernels);
                std::transform(of_a, of_a + count, of_b, of_a, function);
                store_results(of_a, out.data() + first, count, kernels);
            });
        }
    });
}

/// Each element is the Kronecker product of the factor and itself, as products commute bit for bit.
template <typename T>
void scale_by_kernel(const VectorByScalar<T>& operands,
                     const SimdKernels::UnfusedKernels<T>& kernels) {
    const T factor = operands.scalar;
    const std::span<const T> in = operands.map.in;
    const std::span<T> out = operands.map.out;
    for_chunks(in.size(), in.size(), [&](std::uint64_t begin, std::uint64_t end) {
        const std::uint64_t count = end - begin;
        kernels.kron({&factor, 1}, {in.data() + begin, count}, out.data() + begin, {1, 1, count}, 0,
                     1);
    });
}

} // namespace

template <typename T>
void FloatingElementwise<T>::sqrt(const VectorMap<T>& operands, const UnfusedTable& kernels) {
    map<T>(operands, kernels, [](ComputeOf<T> x) { return std::sqrt(x); });
}

template <typename T>
void FloatingElementwise<T>::conjugate(const VectorInPlace<T>& operands) {
    const std::span<T> out = operands.elements;
    auto* const bits = as_bits(out.data());
    for_chunks(out.size(), out.size(), [&](std::uint64_t begin, std::uint64_t end) {
        copy_flipped(bits + begin, bits + begin, end - begin, imaginary_sign<T>());
    });
}

template <typename T>
void FloatingElementwise<T>::multiply(const VectorCombination<T>& operands,
                                      const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a * b; });
}

template <typename T>
void FloatingElementwise<T>::add(const VectorCombination<T>& operands,
                                 const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a + b; });
}

template <typename T>
void FloatingElementwise<T>::subtract(const VectorCombination<T>& operands,
                                      const UnfusedTable& kernels) {
    combine<T>(operands, kernels, [](ComputeOf<T> a, ComputeOf<T> b) { return a - b; });
}

template <typename T>
void FloatingElementwise<T>::scale(const VectorByScalar<T>& operands, const UnfusedTable& kernels) {
    if constexpr (is_complex_element<T> && std::is_same_v<T, ComputeOf<T>>) {
        scale_by_kernel(operands, SimdKernels::unfused_kernels<T>(kernels));
    } else {
        map<T>(operands.map, kernels,
               [factor = operands.scalar](ComputeOf<T> x) { return x * factor; });
    }
}

template <typename T>
void FloatingElementwise<T>::divide(const VectorByScalar<T>& operands,
                                    const UnfusedTable& kernels) {
    const auto scalar = operands.scalar;
    if constexpr (is_complex_element<T>) {
        const ComplexDivisor divisor(scalar);
        map<T>(operands.map, kernels, [&divisor](ComputeOf<T> x) { return divisor.quotient(x); });
    } else {
        map<T>(operands.map, kernels, [scalar](ComputeOf<T> x) { return x / scalar; });
    }
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingElementwise<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
