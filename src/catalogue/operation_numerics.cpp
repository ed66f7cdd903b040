// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_numerics.h"

#include "catalogue/enumeration_words.h"
#include "catalogue/numerics_rules.h"
#include "catalogue/require.h"

#include <set>
#include <tuple>

namespace Tessaline {

namespace {

constexpr std::array shape_relations{"equal", "less_equal", "greater_equal", "divisible_by"};

constexpr std::array requirement_kinds{
    "finite",   "nonzero",           "nonnegative",
    "positive", "nonsingular",       "hermitian",
    "normal",   "positive_definite", "unique_dominant_eigenvalue"};

constexpr std::array requirement_purposes{"execution", "defined_result", "unique_result",
                                          "accuracy"};

constexpr std::array requirement_enforcements{"checked", "guaranteed_by_operand",
                                              "caller_responsibility"};

/// Sorts the shapes and returns the operands with the ranks that they state.
RankTable canonicalise_shapes(std::vector<OperandShape>& shapes,
                              std::span<const OperationOperandSpec> operands) {
    require(shapes.size() == operands.size(),
            "OperationNumerics - shapes must describe every operand role");
    RankTable table;
    for (const OperationOperandSpec& operand : operands) {
        table[operand.role].kind = operand.kind;
    }
    std::set<OperandRole> seen;
    for (const OperandShape& shape : shapes) {
        const auto operand = table.find(shape.role);
        require(operand != table.end() && seen.insert(shape.role).second,
                "OperationNumerics - shape role is missing or duplicated");
        const auto& kind = operand->second.kind;
        require(!kind || operand_kind_rank(*kind) == shape.rank,
                "OperationNumerics - shape rank disagrees with operand kind");
        operand->second.rank = shape.rank;
    }
    std::ranges::sort(shapes, {}, &OperandShape::role);
    return table;
}

void canonicalise_constraints(std::vector<ShapeConstraint>& constraints, const RankTable& table) {
    for (const ShapeConstraint& constraint : constraints) {
        require(is_listed(shape_relations, constraint.relation),
                "OperationNumerics - shape constraint relation is invalid");
        validate_expression(constraint.left, table, shape_expression_rules);
        validate_expression(constraint.right, table, shape_expression_rules);
    }
    std::ranges::sort(constraints, {}, [](const ShapeConstraint& constraint) {
        return std::tuple(constraint.left.canonical(), constraint.relation,
                          constraint.right.canonical());
    });
}

void canonicalise_requirement(NumericalRequirement& requirement, const RankTable& table) {
    require(is_listed(requirement_kinds, requirement.kind),
            "OperationNumerics - requirement kind is invalid");
    require(is_listed(requirement_purposes, requirement.purpose),
            "OperationNumerics - requirement purpose is invalid");
    require(is_listed(requirement_enforcements, requirement.enforcement),
            "OperationNumerics - requirement enforcement is invalid");
    require(!requirement.roles.empty() && !requirement.note.empty(),
            "OperationNumerics - requirements need roles and a note");
    std::ranges::sort(requirement.roles);
    require(std::ranges::adjacent_find(requirement.roles) == requirement.roles.end(),
            "OperationNumerics - requirement roles must be unique");
    for (const OperandRole role : requirement.roles) {
        require(table.contains(role), shape_expression_rules.undeclared_role);
    }
}

} // namespace

const char* shape_relation_name(ShapeRelation relation) {
    return enumeration_word(shape_relations, relation);
}

const char* requirement_kind_name(RequirementKind kind) {
    return enumeration_word(requirement_kinds, kind);
}

const char* requirement_purpose_name(RequirementPurpose purpose) {
    return enumeration_word(requirement_purposes, purpose);
}

const char* requirement_enforcement_name(RequirementEnforcement enforcement) {
    return enumeration_word(requirement_enforcements, enforcement);
}

OperationNumerics canonicalise_operation_numerics(OperationNumerics numerics,
                                                  std::span<const OperationOperandSpec> operands) {
    canonicalise_notes(numerics.notes, "OperationNumerics");
    const RankTable table = canonicalise_shapes(numerics.shapes, operands);
    canonicalise_constraints(numerics.constraints, table);
    for (NumericalRequirement& requirement : numerics.requirements) {
        canonicalise_requirement(requirement, table);
    }
    std::ranges::sort(numerics.requirements, {}, [](const NumericalRequirement& requirement) {
        return std::tie(requirement.kind, requirement.roles, requirement.purpose,
                        requirement.enforcement, requirement.note);
    });
    return numerics;
}

} // namespace Tessaline
