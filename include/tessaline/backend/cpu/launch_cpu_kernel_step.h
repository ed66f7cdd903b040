// SPDX-License-Identifier: Apache-2.0
#pragma once

// The step that calls one typed kernel.

#include "tessaline/backend/cpu/cpu_process_step.h"
#include "tessaline/execution/backend_process.h"

#include <tuple>

namespace Tessaline {

/// Kernel is a plain function pointer type; each Binder resolves one of its arguments, in order,
/// inside the context that the kernel runs in.
template <typename Kernel, typename... Binders>
class LaunchCpuKernelStep final : public BackendProcessStep {
  public:
    LaunchCpuKernelStep(Kernel kernel, BackendKind backend) : kernel_(kernel), backend_(backend) {}

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        CpuProcessStepDetail::with_cpu_context(session, bindings, backend_, [&] {
            // Braces evaluate their elements in order; the arguments of a call need not be.
            const std::tuple arguments{Binders::get(bindings)...};
            std::apply(kernel_, arguments);
        });
    }

  private:
    Kernel kernel_;
    BackendKind backend_;
};

/// A step that calls `kernel` with the operands of `Binders`.
template <typename... Binders, typename Kernel>
std::unique_ptr<BackendProcessStep> launch_cpu_kernel(Kernel kernel) {
    return std::make_unique<LaunchCpuKernelStep<Kernel, Binders...>>(kernel, BackendKind::cpu_simd);
}

} // namespace Tessaline
