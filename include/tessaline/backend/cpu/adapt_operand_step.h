// SPDX-License-Identifier: Apache-2.0
#pragma once

// The steps that bring an operand into the form of a kernel, and its contents back.

#include "tessaline/backend/cpu/cpu_process_step.h"
#include "tessaline/execution/backend_process.h"

#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>

namespace Tessaline {

/// Makes a temporary operand, fills it, and puts it in its role's place for the rest of the run.
/// Entity is an owning pointer to VectorEntity or MatrixEntity. The temporary lives until the step
/// runs again or ends, so that the kernel and the restoring step can use it.
template <typename Entity>
class AdaptOperandStep final : public BackendProcessStep {
  public:
    using Construct = std::function<Entity(const OperandBinding& source,
                                           const BackendExecutionBindings& bindings)>;
    using Adapt =
        std::function<void(const OperandBinding& source, typename Entity::element_type& adapted)>;

    AdaptOperandStep(OperandRole role, Construct construct, Adapt adapt)
        : role_(role),
          construct_(std::move(construct)),
          adapt_(std::move(adapt)) {}

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        if (!construct_) {
            throw std::logic_error("AdaptOperandStep::execute - construct not set");
        }
        if (!adapt_) {
            throw std::logic_error("AdaptOperandStep::execute - adapt not set");
        }
        const OperandBinding source = bindings.operands.at(role_);
        const auto node = CpuProcessStepDetail::preferred_numa_node_for_role(bindings, role_);
        CpuProcessStepDetail::invoke_on_node(session, BackendKind::cpu_simd, node, [&] {
            adapted_ = construct_(source, bindings);
            adapt_(source, **adapted_);
            bindings.push_adapted(role_, std::ref(**adapted_));
        });
    }

  private:
    OperandRole role_;
    Construct construct_;
    Adapt adapt_;
    std::optional<Entity> adapted_;
};

/// Copies a temporary back to the operand that it stood for, and gives the role that one back.
class TESSALINE_API RestoreAdaptedStep final : public BackendProcessStep {
  public:
    using Restore = std::function<void(const OperandBinding& adapted, const OperandBinding& saved)>;

    RestoreAdaptedStep(OperandRole role, Restore restore);
    ~RestoreAdaptedStep() override;

    /// Raises std::out_of_range for a role that is not bound or not adapted.
    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override;

  private:
    OperandRole role_;
    Restore restore_;
};

} // namespace Tessaline
