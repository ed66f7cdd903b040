// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operations that every default catalogue holds: their contracts, shape checks and numerics.

#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/catalogue/operation_registry.h"

namespace Tessaline {

/// Registers all built-in operations, in the order of their ids, which fixes their handles. Their
/// contracts name no operand kinds; their validators check families and shapes instead. Raises
/// whatever OperationRegistry::register_operation does; operations before the refused one stay.
TESSALINE_API void register_builtin_operations(OperationRegistry& registry,
                                               const RegistrationProvenance& provenance);

/// The numerics of a built-in operation, in the order of its author. Raises std::logic_error for an
/// id that is not built in.
TESSALINE_API OperationNumerics operation_numerics(const OperationId& id);

} // namespace Tessaline
