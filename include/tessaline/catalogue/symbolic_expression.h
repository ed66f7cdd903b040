// SPDX-License-Identifier: Apache-2.0
#pragma once

// Formulas in the sizes of an operation's operands: shape rules and costs written down as data, to
// be checked, compared and published. They are never evaluated to a number.

#include "tessaline/catalogue/operand.h"

#include <memory>
#include <optional>
#include <span>
#include <vector>

namespace Tessaline {

enum class SymbolicOperator : std::int32_t {
    unknown = 0,
    constant = 1,
    symbol = 2,
    dimension = 3,
    value = 4,
    add = 5,
    multiply = 6,
    power = 7,
    divide = 8,
    minimum = 9,
    maximum = 10,
    log2 = 11,
};

/// The enumerator's name, and "unknown" for any other value.
TESSALINE_API const char* symbolic_operator_name(SymbolicOperator op);

/// An immutable expression tree. Copies share their node, so they are cheap and may be read from
/// any thread. No algebra is applied: operands keep their order, and nothing is simplified.
class TESSALINE_API SymbolicExpression {
  public:
    struct Node;

    /// A tree has at most so many nodes, one that several operands share counted for each of them.
    /// It bounds the time and stack of whatever walks a tree, and the length of its text.
    static constexpr std::size_t most_nodes = 4096;

    /// The expression `unknown`.
    SymbolicExpression() = default;
    /// Wraps a node without checking its fields; null is `unknown`. Raises std::invalid_argument
    /// for a tree of too many nodes, as all that make an expression do.
    explicit SymbolicExpression(std::shared_ptr<const Node> node);

    static SymbolicExpression unknown();
    /// Raises std::invalid_argument for a negative value: every figure is a size.
    static SymbolicExpression constant(std::int64_t value);
    /// A quantity that is no size of an operand, such as a number of iterations. Raises
    /// std::invalid_argument unless the name is a lower-case letter followed by lower-case letters,
    /// digits, "_" and ".".
    static SymbolicExpression symbol(std::string name);
    /// The run-time value of a scalar operand. Whether the role exists and is a scalar is checked
    /// when the expression enters a numerics record.
    static SymbolicExpression value(OperandRole role);
    /// The length of one axis of an operand. Role and axis are checked when the expression enters a
    /// numerics record.
    static SymbolicExpression dimension(OperandRole role, std::uint64_t axis);
    /// An operator over operands: two or more for add, multiply, minimum and maximum, exactly two
    /// for power and divide, one for log2. Raises std::invalid_argument for another count and for
    /// an operator that is a leaf or out of range.
    static SymbolicExpression operation(SymbolicOperator op,
                                        std::vector<SymbolicExpression> operands);

    SymbolicOperator op() const;
    std::span<const SymbolicExpression> operands() const;
    const std::optional<std::int64_t>& integer() const;
    const std::optional<std::string>& name() const;
    const std::optional<OperandRole>& role() const;
    const std::optional<std::uint64_t>& axis() const;

    /// One text for one tree, without blanks: "multiply(dim(0,0),dim(1,0))". Roles appear as plain
    /// numbers. Raises std::invalid_argument for a leaf that was made without its fields.
    std::string canonical() const;

    /// Structural equality.
    bool operator==(const SymbolicExpression& other) const;

  private:
    const Node& node() const;

    std::shared_ptr<const Node> node_;
    std::size_t node_count_ = 1; ///< of the whole tree
};

/// One node of the tree. Each field after the first belongs to the operators named beside it.
struct SymbolicExpression::Node {
    SymbolicOperator op = SymbolicOperator::unknown;
    std::vector<SymbolicExpression> operands{}; ///< add to log2
    std::optional<std::int64_t> integer{};      ///< constant
    std::optional<std::string> name{};          ///< symbol
    std::optional<OperandRole> role{};          ///< dimension, value
    std::optional<std::uint64_t> axis{};        ///< dimension

    bool operator==(const Node&) const = default;
};

} // namespace Tessaline
