// SPDX-License-Identifier: Apache-2.0
#pragma once

// The constant table from which the built-in operations are registered and described.

#include "catalogue/builtin_validators.h"
#include "tessaline/catalogue/operation_spec.h"

#include <initializer_list>
#include <span>

namespace Tessaline {

/// The type of an operand in a backend's row, in terms of the row's policy.
enum class OperandType {
    stored,  ///< the policy itself
    compute, ///< stored as it is computed
    real,    ///< a component of the compute type
    complex, ///< the complex type of such components
    integer, ///< int32, whatever the policy
};

struct BuiltinOperand {
    OperandRole role;
    OperandAccess access;
    OperandKind kind; ///< the family that the validator admits; it gives the rank
    OperandType type = OperandType::stored;
};

/// One axis of an operand.
struct BuiltinAxis {
    OperandRole role;
    std::uint64_t axis;
};

/// `left` stands in `relation` to `right`, or to `right` times `factor`.
struct BuiltinConstraint {
    BuiltinAxis left;
    ShapeRelation relation;
    BuiltinAxis right;
    std::optional<BuiltinAxis> factor;
};

struct BuiltinRequirement {
    RequirementKind kind;
    OperandRole role;
    RequirementPurpose purpose;
    RequirementEnforcement enforcement;
    const char* note;
};

struct BuiltinOperation {
    const OperationId* id;
    std::initializer_list<BuiltinOperand> operands; ///< in role order
    void (*validate)(BuiltinValidators::Operands);
    std::initializer_list<BuiltinConstraint> constraints;
    std::initializer_list<BuiltinRequirement> requirements;
    std::initializer_list<const char*> notes;
    InPlaceUse in_place_use = InPlaceUse::refused;
};

/// The table, in the order of registration.
std::span<const BuiltinOperation> builtin_operation_table();

/// The row of an operation. Raises std::logic_error for one that is not in the table.
const BuiltinOperation& builtin_operation(const OperationId& id);

} // namespace Tessaline
