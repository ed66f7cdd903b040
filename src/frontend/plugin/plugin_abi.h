// SPDX-License-Identifier: Apache-2.0
#pragma once

// The way between the records of plugin.h and the values of the runtime. Everything that comes from
// a plugin is checked here; each failure is std::invalid_argument unless it says otherwise.

#include "tessaline/catalogue/backend_key.h"
#include "tessaline/plugin.h"

#include <cstdint>
#include <string>

namespace Tessaline::PluginDetail::Internal {

/// "TESSALINE_STATUS_OK" and so on; "TESSALINE_STATUS_UNKNOWN" for a value without a name.
const char* status_name(tessaline_status status);

OperandAccess operand_access(unsigned value);
OperandKind operand_kind(unsigned value);
BackendKind backend_kind(unsigned value);
ScalarType scalar_type(unsigned value);

/// 0 for a value outside the enumeration.
std::uint32_t abi_backend(BackendKind backend);
std::uint32_t abi_buffer_element_type(ScalarType type);

/// An owned copy; a null text with a size fails with `what` and " is malformed".
std::string copy_string(tessaline_string text, const char* what);

/// Fails for a short record, and as OperationId does.
OperationId operation_id(const tessaline_operation_id& record);

/// Fails for a short record, values outside their range, and a type, complex layout and matrix
/// layout that do not fit each other.
BackendOperandKey backend_operand_key(const tessaline_backend_operand& record);

/// Everything about an operand but its buffers. Fails for storage that is not dense.
tessaline_operand_view abi_operand_view(const OperandDescriptor& descriptor, OperandAccess access);

} // namespace Tessaline::PluginDetail::Internal
