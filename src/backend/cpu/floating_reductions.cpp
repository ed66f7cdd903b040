// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating_reductions.h"

#include "backend/cpu/floating_operands.h"

#include <algorithm>
#include <cmath>

namespace Tessaline {

template <typename T>
void FloatingReductions<T>::sum(BackendExecutionBindings& bindings) {
    const auto in = input_vector<T>(bindings, input_role(0));
    const ScalarResult<T> result(bindings, output_role(0));
    ComputeOf<T> sum{};
    for (const T& element : in) {
        sum += widened(element);
    }
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
