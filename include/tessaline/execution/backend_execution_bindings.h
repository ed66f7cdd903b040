// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operands of one run, by role.

#include "tessaline/execution/operand_binding.h"
#include "tessaline/execution/role_table.h"

#include <span>
#include <vector>

namespace Tessaline {

/// Steps look operands up by role and may displace a binding by a temporary for the rest of the
/// run. Entities are referred to, never owned. Used by one thread at a time.
struct TESSALINE_API BackendExecutionBindings {
    RoleTable<OperandBinding> operands; ///< the current binding of each role
    std::vector<OperandRole> roles;     ///< all roles at creation, ascending: inputs, then outputs
    RoleTable<bool> outputs; ///< filled by a run: whether an output's content is preserved
    RoleTable<std::vector<OperandBinding>> adapted; ///< displaced bindings, the caller's own first

    /// The displaced bindings of a role; empty for an unknown role.
    std::span<const OperandBinding> adapted_origins(OperandRole role) const;

    /// Remembers the role's current binding and makes `binding` the current one. Raises
    /// std::out_of_range for a role that is not bound.
    void push_adapted(OperandRole role, OperandBinding binding);

    /// Makes the last remembered binding of a role the current one again and forgets it. Raises
    /// std::out_of_range for a role without one.
    void pop_adapted(OperandRole role);

    /// Gives every role the binding that the caller made.
    void restore_adapted();
};

/// The device of the role's current binding, empty on the host. Raises std::out_of_range for a role
/// that is not bound.
TESSALINE_API std::optional<std::int32_t>
gpu_binding_device_id(const BackendExecutionBindings& bindings, OperandRole role);

/// The entity that is bound to a role, for reading if Const and for writing else. Raises
/// std::out_of_range for a role that is not bound, std::bad_variant_access for an operand of
/// another kind and for writing a const one.
template <typename Entity, bool Const>
auto& bound_operand(const BackendExecutionBindings& bindings, OperandRole role) {
    return bound_operand<Entity, Const>(bindings.operands.at(role));
}

} // namespace Tessaline
