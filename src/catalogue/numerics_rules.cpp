// SPDX-License-Identifier: Apache-2.0
#include "catalogue/numerics_rules.h"

#include "catalogue/require.h"

#include <cctype>

namespace Tessaline {

namespace {

bool is_lower_case_letter(char c) {
    return std::islower(static_cast<unsigned char>(c)) != 0;
}

bool is_identifier_character(char c) {
    return is_lower_case_letter(c) || (c >= '0' && c <= '9') || c == '_' || c == '.';
}

/// A node without a role, which only a hand-made one can be, references no operand.
const RankedOperand& referenced_operand(const SymbolicExpression& expression,
                                        const RankTable& operands, const ExpressionRules& rules) {
    const auto& role = expression.role();
    const auto found = role ? operands.find(*role) : operands.end();
    require(found != operands.end(), rules.undeclared_role);
    return found->second;
}

} // namespace

bool is_lower_case_identifier(std::string_view text) {
    return !text.empty() && is_lower_case_letter(text.front()) &&
           std::ranges::all_of(text, is_identifier_character);
}

void canonicalise_notes(std::vector<std::string>& notes, std::string_view owner) {
    for (const std::string& note : notes) {
        if (note.empty()) {
            throw std::invalid_argument(std::string(owner) + " - notes must not be empty");
        }
    }
    std::ranges::sort(notes);
}

std::uint64_t operand_kind_rank(OperandKind kind) {
    static constexpr std::array<std::uint64_t, 5> ranks{0, 1, 2, 1, 1};
    const auto index = static_cast<std::size_t>(kind);
    return index < ranks.size() ? ranks[index] : 0;
}

void validate_expression(const SymbolicExpression& expression, const RankTable& operands,
                         const ExpressionRules& rules) {
    switch (expression.op()) {
    case SymbolicOperator::unknown:
        require(rules.allow_unknown,
                "SymbolicExpression - unknown is not valid in a shape constraint");
        break;
    case SymbolicOperator::dimension: {
        const RankedOperand& operand = referenced_operand(expression, operands, rules);
        const auto& axis = expression.axis();
        require(axis && *axis < operand.rank,
                "SymbolicExpression - operand dimension axis is out of range");
        break;
    }
    case SymbolicOperator::value: {
        const RankedOperand& operand = referenced_operand(expression, operands, rules);
        require(operand.rank == 0 &&
                    operand.kind.value_or(OperandKind::Scalar) == OperandKind::Scalar,
                "SymbolicExpression - operand value must reference a scalar");
        break;
    }
    case SymbolicOperator::constant:
        // The text of a leaf needs the field that a hand-made one may lack.
        static_cast<void>(expression.canonical());
        require(*expression.integer() >= 0, "SymbolicExpression - constants must be non-negative");
        break;
    case SymbolicOperator::symbol:
        require(is_lower_case_identifier(expression.canonical()),
                "SymbolicExpression - symbol must be a lower-case identifier");
        break;
    default:
        require_arity(expression.op(), expression.operands().size());
        break;
    }
    for (const SymbolicExpression& operand : expression.operands()) {
        validate_expression(operand, operands, rules);
    }
}

} // namespace Tessaline
