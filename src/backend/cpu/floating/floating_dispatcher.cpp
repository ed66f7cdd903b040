// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/floating_dispatcher.h"

#include "backend/cpu/floating/kernel_table.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <stdexcept>

namespace Tessaline {

namespace {

template <typename T>
constexpr FloatingKernelTable kernels = make_floating_kernel_table<T>();

template <typename T>
class Step final : public BackendProcessStep {
  public:
    explicit Step(FloatingOperation operation) : operation_(operation) {}

    void execute(BackendExecutionSession& session, BackendExecutionBindings& bindings) override {
        CpuProcessStepDetail::with_cpu_context(session, bindings, BackendKind::cpu_simd, [&] {
            run_floating_kernel<T>(operation_, bindings);
        });
    }

  private:
    FloatingOperation operation_;
};

} // namespace

template <typename T>
void run_floating_kernel(FloatingOperation operation, BackendExecutionBindings& bindings,
                         const SimdKernels::UnfusedTable& vector_kernels) {
    static_assert(kernels<T>.is_complete(), "an operation has no kernel");
    const FloatingKernel kernel = kernels<T>.find(operation);
    if (kernel == nullptr) {
        throw std::logic_error("CPU floating kernel - unsupported operation");
    }
    kernel(bindings, vector_kernels);
}

template <typename T>
std::unique_ptr<BackendProcessStep> floating_kernel_step(FloatingOperation operation) {
    return std::make_unique<Step<T>>(operation);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(                                                              \
        template void run_floating_kernel<Stored>(FloatingOperation, BackendExecutionBindings&,    \
                                                  const SimdKernels::UnfusedTable&);               \
        template std::unique_ptr<BackendProcessStep> floating_kernel_step<Stored>(                 \
            FloatingOperation);)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
