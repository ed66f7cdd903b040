// SPDX-License-Identifier: Apache-2.0
#include "support/expect_error.h"
#include "tessaline/catalogue/symbolic_expression.h"

#include <algorithm>
#include <limits>

namespace Tessaline {
namespace {

using Testing::expect_error;
using Expression = SymbolicExpression;
using Operator = SymbolicOperator;

const Expression rows = Expression::dimension(input_role(0), 0);
const Expression exponent = Expression::value(input_role(1));

std::vector<Expression> copies(std::size_t count) {
    return std::vector(count, rows);
}

TEST(SymbolicExpression, PrintsOneTextWithoutBlanks) {
    const auto two = Expression::constant(2);
    const std::pair<Expression, const char*> cases[] = {
        {Expression(), "unknown"},
        {Expression::constant(0), "0"},
        {Expression::constant(std::numeric_limits<std::int64_t>::max()), "9223372036854775807"},
        {Expression::symbol("n_2.x"), "n_2.x"},
        {Expression::dimension(output_role(0), 1), "dim(2147483648,1)"},
        {Expression::dimension(input_role(2147483647), 18446744073709551615U),
         "dim(2147483647,18446744073709551615)"},
        {exponent, "value(1)"},
        {Expression::operation(Operator::multiply, {rows, Expression::dimension(input_role(1), 0)}),
         "multiply(dim(0,0),dim(1,0))"},
        {Expression::operation(Operator::minimum, {rows, rows}), "minimum(dim(0,0),dim(0,0))"},
        {Expression::operation(
             Operator::add,
             {Expression::operation(Operator::power, {rows, two}),
              Expression::operation(Operator::log2,
                                    {Expression::operation(Operator::maximum, {exponent, two})}),
              Expression::operation(Operator::divide, {two, Expression::unknown()})}),
         "add(power(dim(0,0),2),log2(maximum(value(1),2)),divide(2,unknown))"},
    };
    for (const auto& [expression, text] : cases) {
        EXPECT_EQ(expression.canonical(), text);
    }
}

TEST(SymbolicExpression, DemandsTheOperandsOfEachOperator) {
    // The counts from 0 to 4 that each operator accepts.
    const std::pair<Operator, std::vector<std::size_t>> cases[] = {
        {Operator{-1}, {}},
        {Operator::unknown, {}},
        {Operator::constant, {}},
        {Operator::symbol, {}},
        {Operator::dimension, {}},
        {Operator::value, {}},
        {Operator::add, {2, 3, 4}},
        {Operator::multiply, {2, 3, 4}},
        {Operator::power, {2}},
        {Operator::divide, {2}},
        {Operator::minimum, {2, 3, 4}},
        {Operator::maximum, {2, 3, 4}},
        {Operator::log2, {1}},
        {Operator{12}, {}},
    };
    for (const auto& [op, counts] : cases) {
        for (std::size_t count = 0; count <= 4; ++count) {
            SCOPED_TRACE(std::to_string(static_cast<int>(op)) + " of " + std::to_string(count));
            if (std::ranges::find(counts, count) != counts.end()) {
                EXPECT_EQ(Expression::operation(op, copies(count)).operands().size(), count);
            } else {
                expect_error<std::invalid_argument>(
                    [&, op = op] { Expression::operation(op, copies(count)); },
                    "SymbolicExpression - operator has invalid arity");
            }
        }
    }
}

TEST(SymbolicExpression, RefusesBadLeaves) {
    expect_error<std::invalid_argument>([] { Expression::constant(-1); },
                                        "SymbolicExpression - constants must be non-negative");
    for (const char* name : {"", "2n", "N", "_n", ".n", "nN", "n m", "n-1", "n\xc3\xa9", "\xff"}) {
        SCOPED_TRACE(name);
        expect_error<std::invalid_argument>(
            [name] { Expression::symbol(name); },
            "SymbolicExpression - symbol must be a lower-case identifier");
    }
    expect_error<std::invalid_argument>(
        [] { Expression::symbol(std::string("n\0m", 3)); },
        "SymbolicExpression - symbol must be a lower-case identifier");
}

TEST(SymbolicExpression, ComparesStructure) {
    EXPECT_EQ(Expression(), Expression::unknown());
    EXPECT_EQ(Expression(nullptr), Expression::unknown());
    EXPECT_NE(Expression::symbol("unknown"), Expression::unknown());
    EXPECT_NE(Expression::dimension(input_role(0), 0), Expression::value(input_role(0)));
    EXPECT_NE(Expression::operation(Operator::add, {rows, exponent}),
              Expression::operation(Operator::add, {exponent, rows}));
    EXPECT_NE(Expression::operation(Operator::add, copies(2)),
              Expression::operation(Operator::add, copies(3)));

    Expression moved = rows;
    const Expression taken = std::move(moved);
    EXPECT_EQ(taken, rows);
    EXPECT_EQ(moved, Expression::unknown()); // NOLINT(bugprone-use-after-move)
}

/// Distinct trees of up to two operators. No symbol of theirs is called "unknown", the one text
/// that two different trees share.
std::vector<Expression> small_trees() {
    const std::vector<Expression> leaves = {Expression::constant(0),
                                            Expression::constant(12),
                                            Expression::symbol("n"),
                                            Expression::symbol("k_2"),
                                            rows,
                                            Expression::dimension(input_role(0), 1),
                                            exponent,
                                            Expression::dimension(output_role(0), 0)};
    std::vector<Expression> trees = leaves;
    for (int op = static_cast<int>(Operator::add); op < static_cast<int>(Operator::log2); ++op) {
        for (const Expression& a : leaves) {
            for (const Expression& b : leaves) {
                trees.push_back(Expression::operation(Operator{op}, {a, b}));
            }
        }
    }
    for (std::size_t tree = trees.size(); tree-- > 0;) {
        trees.push_back(Expression::operation(Operator::log2, {trees[tree]}));
    }
    return trees;
}

TEST(SymbolicExpression, EqualTreesAreThoseOfEqualText) {
    const auto trees = small_trees();
    const auto again = small_trees();
    for (std::size_t i = 0; i < trees.size(); ++i) {
        for (std::size_t j = 0; j < trees.size(); ++j) {
            ASSERT_EQ(trees[i] == again[j], i == j) << trees[i].canonical();
            ASSERT_EQ(trees[i].canonical() == again[j].canonical(), i == j) << again[j].canonical();
        }
    }
}

// Each sum doubles the text; a tree without a limit would soon be too large to print or compare.
TEST(SymbolicExpression, BoundsTreesOfSharedNodes) {
    const auto twice = [](const Expression& expression) {
        return Expression::operation(Operator::add, {expression, expression});
    };
    Expression sum = rows;
    for (std::size_t nodes = 1; 2 * nodes + 1 <= Expression::most_nodes; nodes = 2 * nodes + 1) {
        sum = twice(sum);
    }
    EXPECT_EQ(sum.canonical().size(), 2048 * std::size("dim(0,0)") - 2048 + 2047 * 6);
    EXPECT_EQ(sum, twice(sum.operands()[0]));
    const std::string message = "SymbolicExpression - expression has more than 4096 nodes";
    expect_error<std::invalid_argument>([&] { twice(sum); }, message);
    const auto node = std::make_shared<Expression::Node>();
    node->operands = {sum, rows};
    expect_error<std::invalid_argument>([&] { Expression{node}; }, message);
    node->operands.pop_back();
    EXPECT_NO_THROW(Expression{node});
}

TEST(SymbolicExpression, NamesWhatANodeMadeByHandLacks) {
    const auto made_by_hand = [](Expression::Node node) {
        return Expression(std::make_shared<const Expression::Node>(std::move(node)));
    };
    const std::pair<Expression::Node, const char*> cases[] = {
        {{.op = Operator::constant}, "constant"},
        {{.op = Operator::symbol}, "symbol"},
        {{.op = Operator::value}, "value"},
        {{.op = Operator::dimension, .axis = 0}, "dimension"},
        {{.op = Operator::dimension, .role = input_role(0)}, "dimension"},
    };
    for (const auto& [node, word] : cases) {
        expect_error<std::invalid_argument>(
            [&, &node = node] { static_cast<void>(made_by_hand(node).canonical()); },
            std::string("SymbolicExpression - ") + word + " was made without its fields");
    }
    for (const Operator op : {Operator::add, Operator::log2, Operator{12}, Operator{-1}}) {
        expect_error<std::invalid_argument>(
            [&] { static_cast<void>(made_by_hand({.op = op}).canonical()); },
            "SymbolicExpression - operator has invalid arity");
    }
}

TEST(SymbolicExpression, NamesItsOperators) {
    std::string words;
    for (int op = -1; op <= 12; ++op) {
        words += symbolic_operator_name(Operator{op}) + std::string(" ");
    }
    EXPECT_EQ(words, "unknown unknown constant symbol dimension value add multiply power divide "
                     "minimum maximum log2 unknown ");
}

} // namespace
} // namespace Tessaline
