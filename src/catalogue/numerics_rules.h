// SPDX-License-Identifier: Apache-2.0
#pragma once

// Rules that the numerics records of operations and of implementations share.

#include "tessaline/catalogue/symbolic_expression.h"

#include <algorithm>
#include <array>
#include <map>
#include <string_view>

namespace Tessaline {

/// A lower-case letter followed by lower-case letters, digits, "_" and ".".
bool is_lower_case_identifier(std::string_view text);

/// Raises std::invalid_argument for a number of operands that an operator cannot have. None suits a
/// leaf or a value outside the enumeration.
void require_arity(SymbolicOperator op, std::size_t count);

/// Sorts by bytes and keeps duplicates. Raises std::invalid_argument for an empty note, in the name
/// of the record `owner`.
void canonicalise_notes(std::vector<std::string>& notes, std::string_view owner);

/// Whether an enumeration has a word for this value.
template <typename Enumeration, std::size_t Count>
constexpr bool is_listed(const std::array<const char*, Count>&, Enumeration value) {
    return static_cast<std::size_t>(value) < Count;
}

/// The number of axes of an operand kind. A factorisation and an eigenvalue set count as the one
/// axis of their order; a value outside the enumeration has none.
std::uint64_t operand_kind_rank(OperandKind kind);

/// What an expression may assume of one operand.
struct RankedOperand {
    std::optional<OperandKind> kind; ///< empty accepts any kind
    std::uint64_t rank = 0;
};

using RankTable = std::map<OperandRole, RankedOperand>;

/// What differs between the records that hold expressions.
struct ExpressionRules {
    bool allow_unknown;
    const char* undeclared_role; ///< message for a role outside the table
};

/// Shape constraints of an operation.
inline constexpr ExpressionRules shape_expression_rules{
    false, "SymbolicExpression - operand role is not declared"};
/// Costs of an implementation.
inline constexpr ExpressionRules cost_expression_rules{
    true, "ImplementationNumerics - expression role is not registered"};

/// Raises std::invalid_argument at the first node, from the root in preorder, that the operands do
/// not support.
void validate_expression(const SymbolicExpression& expression, const RankTable& operands,
                         const ExpressionRules& rules);

} // namespace Tessaline
