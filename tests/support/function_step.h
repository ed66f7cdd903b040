// SPDX-License-Identifier: Apache-2.0
#pragma once

// Steps that are written down where they are used, and bindings of one operand for them.

#include "support/plain_entities.h"
#include "tessaline/execution/backend_process.h"

#include <functional>
#include <utility>

namespace Tessaline::Testing {

class FunctionStep final : public BackendProcessStep {
  public:
    using Function = std::function<void(BackendExecutionSession&, BackendExecutionBindings&)>;

    explicit FunctionStep(
        Function function, std::function<void()> at_end = [] {})
        : function_(std::move(function)),
          at_end_(std::move(at_end)) {}
    ~FunctionStep() override { at_end_(); }

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        function_(session, bindings);
    }

  private:
    Function function_;
    std::function<void()> at_end_;
};

inline BackendProcess process_of(FunctionStep::Function function) {
    BackendProcess process;
    process.push_back(std::make_unique<FunctionStep>(std::move(function)));
    return process;
}

/// The vector bound as the first output.
inline BackendExecutionBindings bindings_of(DescribedVector& entity) {
    BackendExecutionBindings bindings;
    bindings.operands.insert(output_role(0), std::ref<VectorEntity>(entity));
    bindings.roles = {output_role(0)};
    return bindings;
}

inline const VectorEntity* bound_vector(const BackendExecutionBindings& bindings) {
    return &bound_entity<VectorEntity>(bindings.operands.at(output_role(0)));
}

} // namespace Tessaline::Testing
