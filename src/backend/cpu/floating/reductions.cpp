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
void for_widened_pieces(std::span<const T> in, const Body& body) {
    if constexpr (std::is_same_v<T, ComputeOf<T>>) {
        body(0, in.data(), in.size());
    } else {
        for_conversion_pieces(0, in.size(), [&](std::uint64_t first, std::uint64_t count) {
            ComputeOf<T> piece[conversion_piece];
            widen_elements(in.data() + first, piece, count);
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

/// The same by vectors.
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
void FloatingReductions<T>::sum(BackendExecutionBindings& bindings) {
    const auto in = input_vector<T>(bindings, input_role(0));
    const ScalarResult<T> result(bindings, output_role(0));
    ComputeOf<T> sum{};
    for_widened_pieces<T>(in, [&sum](auto, const ComputeOf<T>* elements, std::uint64_t count) {
        ComputeOf<T> so_far = sum;
        for (std::uint64_t i = 0; i < count; ++i) {
            so_far += elements[i];
        }
        sum = so_far;
    });
    result.store(sum);
}

template <typename T>
void FloatingReductions<T>::inner(BackendExecutionBindings& bindings) {
    const auto a = input_vector<T>(bindings, input_role(0));
    const auto b = input_vector<T>(bindings, input_role(1), a.size());
    const ScalarResult<T> result(bindings, output_role(0));
    ComputeOf<T> sum{};
    for_widened_pieces<T>(a, [&](std::uint64_t first, const auto* of_a, std::uint64_t count) {
        ComputeOf<T> so_far = sum;
        for_widened_pieces<T>(b.subspan(first, count), [&](auto, const auto* of_b, auto) {
            for (std::uint64_t i = 0; i < count; ++i) {
                so_far += conjugated(of_a[i]) * of_b[i];
            }
        });
        sum = so_far;
    });
    result.store(sum);
}

template <typename T>
void FloatingReductions<T>::trace(BackendExecutionBindings& bindings) {
    const auto matrix = input_matrix<T>(bindings, input_role(0));
    const ScalarResult<T> result(bindings, output_role(0));
    ComputeOf<T> sum{};
    for (std::uint64_t i = 0; i < std::min(matrix.rows, matrix.cols); ++i) {
        sum += widened(matrix(i, i));
    }
    result.store(sum);
}

template <typename T>
void FloatingReductions<T>::norm(BackendExecutionBindings& bindings) {
    const auto in = input_vector<T>(bindings, input_role(0));
    const ScalarResult<T> result(bindings, output_role(0));
    using Real = Component<ComputeOf<T>>;
    const SimdKernels::NormKernels<Real>* kernels =
        in.size() < shortest_norm_by_kernel ? nullptr : SimdKernels::unfused_table();
    Real norm = 0;
    for_widened_pieces<T>(in, [&](auto, const ComputeOf<T>* elements, std::uint64_t count) {
        norm = kernels == nullptr ? plain_norm(norm, elements, count)
                                  : norm_by_kernel(*kernels, norm, elements, count);
    });
    result.store(norm);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingReductions<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
