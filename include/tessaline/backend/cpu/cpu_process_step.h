// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where a CPU step runs: on which NUMA node's runtime, with which thread affinity, and under which
// execution context its kernel finds its workers.

#include "tessaline/backend/cpu/cpu_runtime_context.h"
#include "tessaline/execution/backend_execution_bindings.h"
#include "tessaline/execution/backend_execution_session.h"

#include <memory>
#include <optional>
#include <utility>

namespace Tessaline {

namespace CpuExecutionContextDetail {

/// The context of the step that runs on this thread, null when none does. Kernels read it once, at
/// their head, and capture the runtime for their parallel loops: workers have it unset. A null
/// pointer, or a context without a runtime, means serial execution.
extern TESSALINE_API constinit thread_local CpuExecutionContext* current;

} // namespace CpuExecutionContextDetail

namespace CpuProcessStepDetail {

/// The NUMA node that one bound host operand is known to lie on. Empty for a role that is not
/// bound, for device memory and for an unknown node.
TESSALINE_API std::optional<int>
preferred_numa_node_for_role(const BackendExecutionBindings& bindings, OperandRole role);

/// The NUMA node that holds the greatest weight of operands, counted in elements, where an output
/// whose prior content is read counts twice. Between equal weights a node that holds an output
/// wins, then the one with the lowest operand, outputs before inputs, then the lower id.
TESSALINE_API std::optional<int>
preferred_numa_node_for_operation(const BackendExecutionBindings& bindings);

/// The runtime for work on a node: the context's own, or a local one that shares its budget. Under
/// a strict NUMA policy raises std::invalid_argument for a node that the runtime cannot serve;
/// under any other policy the context's own runtime serves it.
TESSALINE_API std::shared_ptr<CpuRuntimeContext>
runtime_for_numa_node(const CpuExecutionContext& context, int node);

/// Makes a context the thread's current one, and keeps the thread on its runtime's first CPU.
class TESSALINE_API CurrentCpuContextScope {
  public:
    explicit CurrentCpuContextScope(CpuExecutionContext& context);
    CurrentCpuContextScope(const CurrentCpuContextScope&) = delete;
    CurrentCpuContextScope& operator=(const CurrentCpuContextScope&) = delete;
    ~CurrentCpuContextScope();

  private:
    /// Sets the thread's context and gives the former one back, also when pinning raises.
    struct CurrentContext {
        explicit CurrentContext(CpuExecutionContext& context);
        ~CurrentContext();
        CpuExecutionContext* outer;
    };

    CurrentContext current_;
    std::shared_ptr<CpuRuntimeContext> runtime_;
    std::optional<CpuRuntimeContext::CurrentThreadAffinityScope> affinity_;
};

template <typename Function>
void invoke_with_current_cpu_context(CpuExecutionContext& context, Function&& function) {
    const CurrentCpuContextScope scope(context);
    std::forward<Function>(function)();
}

/// Calls `function` in the context of a CPU family of the session, on the runtime of `node` where
/// one is given. Raises what runtime_for_numa_node does.
template <typename Function>
void invoke_on_node(BackendExecutionSession& session, BackendKind backend, std::optional<int> node,
                    Function&& function) {
    CpuExecutionContext& context = session.cpu(backend);
    if (node) {
        auto runtime = runtime_for_numa_node(context, *node);
        if (runtime != context.runtime()) {
            CpuExecutionContext local(backend, std::move(runtime));
            invoke_with_current_cpu_context(local, std::forward<Function>(function));
            return;
        }
    }
    invoke_with_current_cpu_context(context, std::forward<Function>(function));
}

/// Raises std::invalid_argument for a family that is not a CPU one.
TESSALINE_API void require_cpu_backend(BackendKind backend);

/// Calls `function` where the operands of a step lie. Raises std::invalid_argument for a family
/// that is not a CPU one, and what runtime_for_numa_node does.
template <typename Function>
void with_cpu_context(BackendExecutionSession& session, const BackendExecutionBindings& bindings,
                      BackendKind backend, Function&& function) {
    const auto node = preferred_numa_node_for_operation(bindings);
    require_cpu_backend(backend);
    invoke_on_node(session, backend, node, std::forward<Function>(function));
}

} // namespace CpuProcessStepDetail

} // namespace Tessaline
