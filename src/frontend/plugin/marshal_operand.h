// SPDX-License-Identifier: Apache-2.0
#pragma once

// A bound operand as a plugin's kernel sees it.

#include "frontend/plugin/plugin_registration.h"
#include "tessaline/execution/operand_binding.h"

namespace Tessaline::PluginDetail::Internal {

/// The most buffers that an operand has: those of an LU decomposition.
inline constexpr std::size_t most_buffers = 3;

/// Describes what is bound in the place of `operand` and writes its buffers to `buffers`, which has
/// room for `most_buffers`. The result refers to both. Raises std::invalid_argument for an operand
/// of another kind and for storage that contradicts its own description.
tessaline_operand_view marshal_operand(const StagedOperand& operand, const OperandBinding& binding,
                                       tessaline_buffer_view* buffers);

} // namespace Tessaline::PluginDetail::Internal
