// SPDX-License-Identifier: Apache-2.0
#include "frontend/plugin/plugin_kernel.h"

#include "catalogue/require.h"
#include "frontend/plugin/marshal_operand.h"
#include "frontend/plugin/plugin_abi.h"
#include "frontend/plugin/plugin_failure.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <algorithm>

namespace Tessaline::PluginDetail::Internal {

namespace {

constexpr std::int32_t no_cuda_device = -1;

BackendProcess make_process(const std::shared_ptr<const NativeKernel>& kernel) {
    BackendProcess process;
    process.push_back(std::make_unique<NativeKernelStep>(kernel));
    return process;
}

} // namespace

NativeKernelStep::NativeKernelStep(std::shared_ptr<const NativeKernel> kernel)
    : kernel_(std::move(kernel)) {}

NativeKernelStep::~NativeKernelStep() = default;

void NativeKernelStep::execute(BackendExecutionSession& session,
                               BackendExecutionBindings& bindings) {
    CpuProcessStepDetail::with_cpu_context(session, bindings, kernel_->declaration.backend,
                                           [&] { invoke(bindings, no_cuda_device, nullptr); });
}

void NativeKernelStep::invoke(const BackendExecutionBindings& bindings, std::int32_t cuda_device,
                              void* cuda_stream) const {
    const StagedKernel& kernel = kernel_->declaration;
    const std::size_t count = kernel.operands.size();
    std::vector<tessaline_operand_view> views(count);
    std::vector<tessaline_buffer_view> buffers(count * most_buffers);
    for (std::size_t index = 0; index < count; ++index) {
        const StagedOperand& operand = kernel.operands[index];
        views[index] = marshal_operand(operand, bindings.operands.at(operand.role),
                                       &buffers[index * most_buffers]);
    }
    const tessaline_kernel_invocation invocation{sizeof(tessaline_kernel_invocation),
                                                 abi_backend(kernel.backend),
                                                 cuda_device,
                                                 cuda_stream,
                                                 views.data(),
                                                 count};
    ErrorCapture capture;
    const tessaline_error_sink sink = capture.sink();
    const tessaline_status status =
        call_plugin(capture, kernel.callback, kernel.user_data, &invocation, &sink);
    if (status != TESSALINE_STATUS_OK) {
        throw_plugin_error("native kernel callback", capture.message(), status, kernel.backend);
    }
}

PluginKernel make_kernel(StagedKernel staged, const std::shared_ptr<NativeLibrary>& library) {
    std::vector<BackendOperandKey> inputs;
    std::vector<BackendOperandKey> outputs;
    for (const StagedOperand& operand : staged.operands) {
        (is_output_role(operand.role) ? outputs : inputs).push_back(operand.key);
    }
    require(std::ranges::any_of(
                staged.operands,
                [](const StagedOperand& operand) { return operand.access != OperandAccess::read; }),
            "native kernel must have at least one write or read-write operand");
    BackendRegistryKey key(staged.backend, staged.operation, std::move(inputs), std::move(outputs));
    const auto kernel =
        std::make_shared<const NativeKernel>(NativeKernel{std::move(staged), library});
    return {std::move(key), BackendEntry([kernel] { return make_process(kernel); })};
}

} // namespace Tessaline::PluginDetail::Internal
