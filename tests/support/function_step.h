// SPDX-License-Identifier: Apache-2.0
#pragma once

// A step that is written down where it is used.

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

} // namespace Tessaline::Testing
