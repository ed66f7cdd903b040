// SPDX-License-Identifier: Apache-2.0
#pragma once

// The keys of a floating row: what the contract of its operation says of its operands, in the types
// of a policy.

#include "backend/common/floating_operation.h"
#include "tessaline/catalogue/backend_key.h"

namespace Tessaline {

/// The registry key of an operation under a policy whose scalar types are compiled. `operand_key`
/// makes the key of one operand, where and as the backend wants it.
BackendRegistryKey
floating_key(BackendKind backend, FloatingOperation operation, const DataTypeDescriptor& policy,
             BackendOperandKey (*operand_key)(OperandKind kind, const DataTypeDescriptor& type));

} // namespace Tessaline
