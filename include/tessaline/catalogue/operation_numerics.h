// SPDX-License-Identifier: Apache-2.0
#pragma once

// The numerics of an operation, whatever implements it: ranks of its operands, rules between their
// shapes, and what the operands must satisfy. Published information that no control flow reads.

#include "tessaline/catalogue/operation_operand_spec.h"
#include "tessaline/catalogue/symbolic_expression.h"

namespace Tessaline {

/// How the left side of a constraint relates to the right one; under `divisible_by` the left side
/// is a multiple of the right one.
enum class ShapeRelation : std::int32_t {
    equal = 0,
    less_equal = 1,
    greater_equal = 2,
    divisible_by = 3,
};

/// A property that operands must have.
enum class RequirementKind : std::int32_t {
    finite = 0,
    nonzero = 1,
    nonnegative = 2,
    positive = 3,
    nonsingular = 4,
    hermitian = 5,
    normal = 6,
    positive_definite = 7,
    unique_dominant_eigenvalue = 8,
};

/// What is lost where a requirement is not met.
enum class RequirementPurpose : std::int32_t {
    execution = 0,
    defined_result = 1,
    unique_result = 2,
    accuracy = 3,
};

/// Who answers for a requirement.
enum class RequirementEnforcement : std::int32_t {
    checked = 0,
    guaranteed_by_operand = 1,
    caller_responsibility = 2,
};

/// Printed names: the enumerator's, and "unknown" for any other value.
TESSALINE_API const char* shape_relation_name(ShapeRelation relation);
TESSALINE_API const char* requirement_kind_name(RequirementKind kind);
TESSALINE_API const char* requirement_purpose_name(RequirementPurpose purpose);
TESSALINE_API const char* requirement_enforcement_name(RequirementEnforcement enforcement);

/// The number of axes of one operand.
struct OperandShape {
    OperandRole role{};
    std::uint64_t rank = 0;

    bool operator==(const OperandShape&) const = default;
};

/// A rule between two sizes.
struct ShapeConstraint {
    SymbolicExpression left;
    ShapeRelation relation = ShapeRelation::equal;
    SymbolicExpression right;

    bool operator==(const ShapeConstraint&) const = default;
};

/// A property that the operands `roles` must have, with a note for people.
struct NumericalRequirement {
    RequirementKind kind = RequirementKind::finite;
    std::vector<OperandRole> roles;
    RequirementPurpose purpose = RequirementPurpose::execution;
    RequirementEnforcement enforcement = RequirementEnforcement::checked;
    std::string note;

    bool operator==(const NumericalRequirement&) const = default;
};

struct OperationNumerics {
    std::vector<OperandShape> shapes; ///< one for every operand
    std::vector<ShapeConstraint> constraints;
    std::vector<NumericalRequirement> requirements;
    std::vector<std::string> notes;

    bool operator==(const OperationNumerics&) const = default;
};

/// Checks a record against the operands that its operation declares and sorts each of its lists, so
/// that the result does not depend on the order in which an author wrote them.
///
/// Raises std::invalid_argument at the first fault: an empty note, shapes that do not cover each
/// operand exactly once or contradict its kind, a value outside an enumeration, an expression over
/// an undeclared role, a missing axis, the value of something else than a scalar, or `unknown`, and
/// a requirement without a note or without distinct declared roles.
TESSALINE_API OperationNumerics canonicalise_operation_numerics(
    OperationNumerics numerics, std::span<const OperationOperandSpec> operands);

} // namespace Tessaline
