// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rule for operands that share memory.

#include "tessaline/catalogue/operation_descriptor.h"
#include "tessaline/execution/backend_execution_bindings.h"

namespace Tessaline {

/// Raises std::invalid_argument, naming both roles, when an output shares a byte with another
/// operand and the operation may not be done in place there; see InPlaceUse. An output whose planes
/// overlap each other is refused as well. `request` describes the operands of `bindings`. Operands
/// that offer no access to their memory share none.
void refuse_shared_memory(const OperationSpec& spec, const OperationDescriptor& request,
                          const BackendExecutionBindings& bindings);

} // namespace Tessaline
