// SPDX-License-Identifier: Apache-2.0
#pragma once

// The adaptation between host layouts of complex operands: which differences it bridges, and by
// which steps.

#include "tessaline/catalogue/backend_key.h"
#include "tessaline/execution/backend_process.h"

#include <memory>

namespace Tessaline {

/// Whether the step from one host key to the other is one from interleaved storage towards split
/// row-major storage, or between the two orders of interleaved matrices.
bool supports_cpu_layout_adaptation(const BackendOperandKey& from, const BackendOperandKey& to);

/// With `restore` the step that copies an adapted operand back. Otherwise the step that puts an
/// operand of the layout of `target` in the role's place, on the same NUMA node, with the contents
/// carried over if `copy`. Raises std::invalid_argument for a policy or operand kind without
/// layouts, and for a policy that is not compiled.
std::unique_ptr<BackendProcessStep>
adapt_cpu_layout(OperandRole role, const BackendOperandKey& target, bool copy, bool restore);

} // namespace Tessaline
