// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/builtin_operations.h"

#include "catalogue/builtin_operation_table.h"
#include "catalogue/numerics_rules.h"

#include <stdexcept>

namespace Tessaline {

namespace {

SymbolicExpression expression(const BuiltinAxis& axis) {
    return SymbolicExpression::dimension(axis.role, axis.axis);
}

ShapeConstraint shape_constraint(const BuiltinConstraint& row) {
    SymbolicExpression right = expression(row.right);
    if (row.factor) {
        right = SymbolicExpression::operation(SymbolicOperator::multiply,
                                              {std::move(right), expression(*row.factor)});
    }
    return {expression(row.left), row.relation, std::move(right)};
}

OperationNumerics numerics_of(const BuiltinOperation& row) {
    OperationNumerics numerics;
    for (const BuiltinOperand& operand : row.operands) {
        numerics.shapes.push_back({operand.role, operand_kind_rank(operand.kind)});
    }
    for (const BuiltinConstraint& constraint : row.constraints) {
        numerics.constraints.push_back(shape_constraint(constraint));
    }
    for (const BuiltinRequirement& requirement : row.requirements) {
        numerics.requirements.push_back({requirement.kind,
                                         {requirement.role},
                                         requirement.purpose,
                                         requirement.enforcement,
                                         requirement.note});
    }
    numerics.notes.assign(row.notes.begin(), row.notes.end());
    return numerics;
}

OperationSpec spec_of(const BuiltinOperation& row) {
    std::vector<OperationOperandSpec> operands;
    for (const BuiltinOperand& operand : row.operands) {
        operands.push_back({operand.role, operand.access, std::nullopt});
    }
    return {*row.id, std::move(operands), row.validate, numerics_of(row), row.in_place_use};
}

} // namespace

const BuiltinOperation& builtin_operation(const OperationId& id) {
    for (const BuiltinOperation& row : builtin_operation_table()) {
        if (*row.id == id) {
            return row;
        }
    }
    throw std::logic_error("operation_numerics - unknown built-in operation");
}

void register_builtin_operations(OperationRegistry& registry,
                                 const RegistrationProvenance& provenance) {
    for (const BuiltinOperation& row : builtin_operation_table()) {
        registry.register_operation(spec_of(row), provenance);
    }
}

OperationNumerics operation_numerics(const OperationId& id) {
    return numerics_of(builtin_operation(id));
}

} // namespace Tessaline
