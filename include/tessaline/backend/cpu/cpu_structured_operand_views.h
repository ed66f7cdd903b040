// SPDX-License-Identifier: Apache-2.0
#pragma once

// Binders for LU factorisations and eigenvalue sets. Such operands have no typed access interface:
// the operand has to be of the class `Entity` itself. Errors are those of cpu_operand_views.h.

#include "tessaline/backend/cpu/cpu_operand_views.h"
#include "tessaline/storage/host_eigen_vals.h"
#include "tessaline/storage/host_lu_decomp.h"

#include <functional>

namespace Tessaline {

namespace CpuOperandViewDetail {

template <typename Entity>
auto lu_view(Entity& lu) {
    using Pivot = std::remove_pointer_t<decltype(lu.pivots())>;
    using Element = std::remove_pointer_t<decltype(lu.factors())>;
    return LuDecompView<Pivot, Element>{lu.pivots(), lu.factors(), lu.swap_count(), lu.size()};
}

} // namespace CpuOperandViewDetail

template <typename Entity, OperandRole Role>
struct BoundHostLUDecompView {
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        return lu_view(dynamic_cast<Entity&>(entity<LuDecompEntity, Role, false>(bindings)));
    }
};

template <typename Entity, OperandRole Role>
struct BoundConstHostLUDecompView {
    static auto get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        return lu_view(dynamic_cast<const Entity&>(entity<LuDecompEntity, Role, true>(bindings)));
    }
};

/// The set itself, for kernels that take a reference to it.
template <typename Entity, OperandRole Role>
struct BoundHostEigenVals {
    static std::reference_wrapper<Entity> get(BackendExecutionBindings& bindings) {
        using namespace CpuOperandViewDetail;
        return dynamic_cast<Entity&>(entity<EigenValsEntity, Role, false>(bindings));
    }
};

} // namespace Tessaline
