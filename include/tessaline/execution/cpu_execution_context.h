// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a CPU step of a session works in.

#include "tessaline/execution/backend_context.h"

#include <memory>
#include <utility>

namespace Tessaline {

class CpuRuntimeContext;

class TESSALINE_API CpuExecutionContext final : public BackendExecutionContext {
  public:
    /// `runtime` may be null: kernels then run serially.
    CpuExecutionContext(BackendKind backend, std::shared_ptr<CpuRuntimeContext> runtime)
        : backend_(backend),
          runtime_(std::move(runtime)) {}
    ~CpuExecutionContext() override;

    BackendKind backend() const override { return backend_; }
    const std::shared_ptr<CpuRuntimeContext>& runtime() const { return runtime_; }

  private:
    BackendKind backend_;
    std::shared_ptr<CpuRuntimeContext> runtime_;
};

} // namespace Tessaline
