// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a plugin declares while it initialises, before the catalogue knows of it.

#include "tessaline/catalogue/backend_key.h"
#include "tessaline/catalogue/operation_operand_spec.h"
#include "tessaline/plugin.h"

#include <optional>
#include <string>
#include <vector>

namespace Tessaline::PluginDetail::Internal {

struct StagedOperand {
    OperandRole role;
    OperandAccess access;
    OperandKind kind;
    BackendOperandKey key;
};

struct StagedKernel {
    OperationId operation;
    BackendKind backend;
    std::vector<StagedOperand> operands; ///< inputs, then outputs
    tessaline_kernel_fn callback;
    void* user_data;
};

/// The contract that the first kernel of an operation implies and that later ones must repeat.
struct StagedOperation {
    OperationId operation;
    std::vector<OperationOperandSpec> operands;
};

/// What stands behind `tessaline_host::context`.
struct RegistrationContext {
    std::vector<StagedOperation> operations;
    std::vector<StagedKernel> kernels;
    std::optional<std::string> failure; ///< of the first registration that failed
};

/// The function behind `tessaline_host::register_kernel`. A kernel that is refused leaves nothing
/// behind but `failure`.
tessaline_status register_kernel(void* context, const tessaline_kernel_spec* spec,
                                 const tessaline_error_sink* sink) noexcept;

} // namespace Tessaline::PluginDetail::Internal
