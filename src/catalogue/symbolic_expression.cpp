// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/symbolic_expression.h"

#include "catalogue/numerics_rules.h"
#include "catalogue/require.h"

#include <limits>

namespace Tessaline {

namespace {

struct OperatorRow {
    const char* word;
    std::size_t fewest; ///< operands that operation() demands
    std::size_t most;   ///< 0 for a leaf, which no count satisfies
};

constexpr std::size_t any_number = std::numeric_limits<std::size_t>::max();

/// Indexed by SymbolicOperator.
constexpr std::array<OperatorRow, 12> operators{{
    {"unknown", 1, 0},
    {"constant", 1, 0},
    {"symbol", 1, 0},
    {"dimension", 1, 0},
    {"value", 1, 0},
    {"add", 2, any_number},
    {"multiply", 2, any_number},
    {"power", 2, 2},
    {"divide", 2, 2},
    {"minimum", 2, any_number},
    {"maximum", 2, any_number},
    {"log2", 1, 1},
}};

const OperatorRow& operator_row(SymbolicOperator op) {
    const auto index = static_cast<std::size_t>(op);
    return index < operators.size() ? operators[index] : operators.front();
}

SymbolicExpression make_expression(SymbolicExpression::Node node) {
    return SymbolicExpression(std::make_shared<const SymbolicExpression::Node>(std::move(node)));
}

/// A field that belongs to the operator of its node, which only a hand-made node can lack.
template <typename Value>
const Value& field(const std::optional<Value>& value, SymbolicOperator op) {
    if (!value) {
        throw std::invalid_argument("SymbolicExpression - " +
                                    std::string(symbolic_operator_name(op)) +
                                    " was made without its fields");
    }
    return *value;
}

std::string role_number(const SymbolicExpression& expression) {
    return std::to_string(static_cast<std::uint32_t>(field(expression.role(), expression.op())));
}

} // namespace

void require_arity(SymbolicOperator op, std::size_t count) {
    const OperatorRow& row = operator_row(op);
    require(count >= row.fewest && count <= row.most,
            "SymbolicExpression - operator has invalid arity");
}

const char* symbolic_operator_name(SymbolicOperator op) {
    return operator_row(op).word;
}

SymbolicExpression::SymbolicExpression(std::shared_ptr<const Node> node) : node_(std::move(node)) {
    for (const SymbolicExpression& operand : operands()) {
        node_count_ += operand.node_count_;
    }
    require(node_count_ <= most_nodes, "SymbolicExpression - expression has more than 4096 nodes");
}

SymbolicExpression SymbolicExpression::unknown() {
    return {};
}

SymbolicExpression SymbolicExpression::constant(std::int64_t value) {
    require(value >= 0, "SymbolicExpression - constants must be non-negative");
    return make_expression({.op = SymbolicOperator::constant, .integer = value});
}

SymbolicExpression SymbolicExpression::symbol(std::string name) {
    require(is_lower_case_identifier(name),
            "SymbolicExpression - symbol must be a lower-case identifier");
    return make_expression({.op = SymbolicOperator::symbol, .name = std::move(name)});
}

SymbolicExpression SymbolicExpression::value(OperandRole role) {
    return make_expression({.op = SymbolicOperator::value, .role = role});
}

SymbolicExpression SymbolicExpression::dimension(OperandRole role, std::uint64_t axis) {
    return make_expression({.op = SymbolicOperator::dimension, .role = role, .axis = axis});
}

SymbolicExpression SymbolicExpression::operation(SymbolicOperator op,
                                                 std::vector<SymbolicExpression> operands) {
    require_arity(op, operands.size());
    return make_expression({.op = op, .operands = std::move(operands)});
}

const SymbolicExpression::Node& SymbolicExpression::node() const {
    static const Node unknown_node;
    return node_ ? *node_ : unknown_node;
}

SymbolicOperator SymbolicExpression::op() const {
    return node().op;
}

std::span<const SymbolicExpression> SymbolicExpression::operands() const {
    return node().operands;
}

const std::optional<std::int64_t>& SymbolicExpression::integer() const {
    return node().integer;
}

const std::optional<std::string>& SymbolicExpression::name() const {
    return node().name;
}

const std::optional<OperandRole>& SymbolicExpression::role() const {
    return node().role;
}

const std::optional<std::uint64_t>& SymbolicExpression::axis() const {
    return node().axis;
}

std::string SymbolicExpression::canonical() const {
    switch (op()) {
    case SymbolicOperator::unknown:
        return "unknown";
    case SymbolicOperator::constant:
        return std::to_string(field(integer(), op()));
    case SymbolicOperator::symbol:
        return field(name(), op());
    case SymbolicOperator::dimension:
        return "dim(" + role_number(*this) + "," + std::to_string(field(axis(), op())) + ")";
    case SymbolicOperator::value:
        return "value(" + role_number(*this) + ")";
    default:
        require_arity(op(), operands().size());
    }
    std::string list;
    for (const SymbolicExpression& operand : operands()) {
        list += (list.empty() ? "" : ",") + operand.canonical();
    }
    return symbolic_operator_name(op()) + ("(" + list + ")");
}

bool SymbolicExpression::operator==(const SymbolicExpression& other) const {
    return node() == other.node();
}

} // namespace Tessaline
