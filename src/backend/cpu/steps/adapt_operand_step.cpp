// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/adapt_operand_step.h"

namespace Tessaline {

RestoreAdaptedStep::RestoreAdaptedStep(OperandRole role, Restore restore)
    : role_(role),
      restore_(std::move(restore)) {}

RestoreAdaptedStep::~RestoreAdaptedStep() = default;

void RestoreAdaptedStep::execute(BackendExecutionSession& session,
                                 BackendExecutionBindings& bindings) {
    if (!restore_) {
        throw std::logic_error("RestoreAdaptedStep::execute - restore not set");
    }
    const auto node = CpuProcessStepDetail::preferred_numa_node_for_role(bindings, role_);
    CpuProcessStepDetail::invoke_on_node(session, BackendKind::cpu_simd, node, [&] {
        restore_(bindings.operands.at(role_), bindings.adapted.at(role_).back());
        bindings.pop_adapted(role_);
    });
}

} // namespace Tessaline
