// SPDX-License-Identifier: Apache-2.0
#pragma once

// The one generic way from a Python call to an operation.

#include "native_context.h"

#include <string_view>

namespace Tessaline::Python {

/// Runs an operation on the caller's objects.
///
/// The three dictionaries are keyed by the integer value of the operand's role: the array, "host"
/// or "cuda", and optionally the word of its compute type. Returns the object of the one written
/// operand, or a tuple of all of them in operand order. The interpreter lock is held but for the
/// run itself. Nothing of an array is copied unless its order asks for it.
nanobind::object execute_operation(const NativeContext& context, std::string_view operation,
                                   const nanobind::dict& bindings, const nanobind::dict& locations,
                                   const nanobind::dict& compute_dtypes);

} // namespace Tessaline::Python
