// SPDX-License-Identifier: Apache-2.0
#pragma once

// The front door: runs one operation of the catalogue by its id.

#include "tessaline/frontend/backend_executor.h"
#include "tessaline/frontend/operation_bindings.h"
#include "tessaline/frontend/tessaline_context.h"

namespace Tessaline {

/// Checks operands against the contract, dispatches and runs; nothing is kept between calls. May be
/// used from several threads at once.
class TESSALINE_API TessalineExecutor {
  public:
    /// The context must outlive the executor.
    TessalineExecutor(const TessalineContext& context, BackendExecutor&& executor);
    TessalineExecutor(const TessalineContext&& context, BackendExecutor&& executor) = delete;

    /// Runs operation `id` on the bound operands and returns when the result is there.
    ///
    /// Inputs may share memory with each other. An output shares none with any other operand, but
    /// for an elementwise operation (add, subtract, multiply, scale, divide, sqrt), where it may be
    /// an input's memory exactly: of the same type, shape and layout, with the same first element.
    ///
    /// Raises std::out_of_range for an unknown operation; std::invalid_argument for bindings of
    /// another arity, a missing binding, a written role bound as const, operands that the contract
    /// refuses, and an output that overlaps another operand; DispatchError when no implementation
    /// can be reached. All of these leave every operand as it was. Failures of the run pass through
    /// unchanged.
    void execute(BackendExecutionBindings& bindings, const OperationId& id,
                 BackendExecutor::ExecutionOptions options) const;
    void execute(BackendExecutionBindings& bindings, const OperationId& id) const;
    /// Runs an operation that was looked up in the context before, which spares the call a search.
    /// Raises std::invalid_argument for one of another catalogue.
    void execute(BackendExecutionBindings& bindings, const OperationSpec& operation,
                 BackendExecutor::ExecutionOptions options) const;
    void execute(const OperationId& id, const OperationBindings& bindings,
                 BackendExecutor::ExecutionOptions options) const;
    void execute(const OperationId& id, const OperationBindings& bindings) const;

  private:
    void run(BackendExecutionBindings& bindings, const OperationSpec& spec,
             BackendExecutor::ExecutionOptions options) const;

    const TessalineContext* context_;
    BackendExecutor executor_;
};

} // namespace Tessaline
