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
    for (std::uint64_t i = 0; i < a.size(); ++i) {
        sum += conjugated(widened(a[i])) * widened(b[i]);
    }
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
    Component<ComputeOf<T>> norm = 0;
    for (const T& element : in) {
        norm = std::hypot(norm, std::abs(widened(element)));
    }
    result.store(norm);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingReductions<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
