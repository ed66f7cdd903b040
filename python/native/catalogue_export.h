// SPDX-License-Identifier: Apache-2.0
#pragma once

// The catalogue as plain Python objects.

#include "tessaline/catalogue/operation_description.h"

#include <nanobind/nanobind.h>

namespace Tessaline::Python {

/// A description as new dictionaries, lists and texts; nothing refers back to the catalogue.
///
/// An expression is a dictionary with "kind": "constant" (with "integer"), "symbol" ("name"),
/// "operand_dimension" ("role", "axis"), "operand_value" ("role"), "unknown", or the word of an
/// operator ("operator", "operands"). Roles are integers.
nanobind::dict export_description(const OperationDescription& description);

} // namespace Tessaline::Python
