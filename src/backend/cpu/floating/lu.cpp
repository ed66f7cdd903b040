// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/lu.h"

#include "backend/cpu/floating/operands.h"
#include "backend/cpu/lu/factor.h"
#include "backend/cpu/lu/logdet.h"
#include "backend/cpu/lu/solve.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace Tessaline {

namespace {

/// The buffers of an LU operand, and their names in messages. A kernel that does not need the
/// pivots or the swap count gives no name for them, and gets none.
template <typename T, typename Entity>
auto lu_view(Entity& entity, std::string_view pivots, std::string_view swaps) {
    if (entity.descriptor().type().storage_type() != ElementTraits<T>::scalar_type) {
        throw std::invalid_argument("CPU LU - factors must use their compute dtype");
    }
    constexpr bool is_const = std::is_const_v<Entity>;
    LuDecompView<std::conditional_t<is_const, const long, long>,
                 std::conditional_t<is_const, const T, T>>
        view{};
    view.size = entity.descriptor().size();
    view.factors =
        require_buffer_data<T>(entity, BufferRole::lu_factors,
                               checked_element_count(view.size, view.size), floating_kernel_name);
    if (!pivots.empty()) {
        view.pivots = require_buffer_data<long>(entity, BufferRole::lu_pivots, view.size, pivots);
    }
    if (!swaps.empty()) {
        view.swap_count =
            require_buffer_data<std::uint64_t>(entity, BufferRole::lu_swap_count, 1, swaps);
    }
    return view;
}

const LuDecompEntity& input_lu(BackendExecutionBindings& bindings) {
    return bound_entity<LuDecompEntity>(bindings.operands.at(input_role(0)));
}

} // namespace

template <typename T>
void FloatingLu<T>::lu_factor(BackendExecutionBindings& bindings) {
    auto& entity = FloatingOperandDetail::writable<LuDecompEntity>(bindings, output_role(0));
    CpuFallback::lu_factor(lu_view<ComputeOf<T>>(entity, "LU pivots", "LU swaps"),
                           entity.descriptor().layout());
}

template <typename T>
void FloatingLu<T>::solve(BackendExecutionBindings& bindings) {
    using Compute = ComputeOf<T>;
    const LuDecompEntity& entity = input_lu(bindings);
    const auto lu = lu_view<Compute>(entity, "solve pivots", {});
    const auto b = output_vector<T>(bindings, output_role(0), lu.size);
    const DataMatrixLayout layout = entity.descriptor().layout();
    if constexpr (std::is_same_v<T, Compute>) {
        CpuFallback::solve(lu, layout, b.data());
        std::ranges::transform(b, b.begin(), result_as<T>);
    } else {
        std::vector<Compute> x(b.size());
        std::ranges::transform(b, x.begin(), widened<T>);
        CpuFallback::solve(lu, layout, x.data());
        std::ranges::transform(x, b.begin(), result_as<T>);
    }
}

template <typename T>
void FloatingLu<T>::logdet(BackendExecutionBindings& bindings) {
    using Compute = ComputeOf<T>;
    const auto lu = lu_view<Compute>(input_lu(bindings), {}, "logdet swaps");
    const ScalarResult<std::complex<Component<Compute>>> result(bindings, output_role(0));
    result.store(CpuFallback::logdet(lu));
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct FloatingLu<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
