// SPDX-License-Identifier: Apache-2.0
#pragma once

// Random expression trees over given operands.

#include "support/counter_random.h"
#include "tessaline/catalogue/operation_numerics.h"

namespace Tessaline::Testing {

/// A leaf that is valid over `shapes`; scalars are referenced by value.
inline SymbolicExpression random_leaf(CounterRandom& random, std::span<const OperandShape> shapes) {
    static const char* const names[] = {"n", "iterations", "k_2.x"};
    switch (random.below(4)) {
    case 0:
        return SymbolicExpression::constant(static_cast<std::int64_t>(random.below(12)));
    case 1:
        return SymbolicExpression::symbol(names[random.below(std::size(names))]);
    default: {
        const OperandShape& shape = shapes[random.below(shapes.size())];
        return shape.rank == 0
                   ? SymbolicExpression::value(shape.role)
                   : SymbolicExpression::dimension(shape.role, random.below(shape.rank));
    }
    }
}

inline SymbolicExpression random_expression(CounterRandom& random,
                                            std::span<const OperandShape> shapes, int depth) {
    if (depth == 0 || random.below(3) == 0) {
        return random_leaf(random, shapes);
    }
    const auto op = static_cast<SymbolicOperator>(5 + random.below(7));
    const bool binary = op == SymbolicOperator::power || op == SymbolicOperator::divide;
    const std::size_t count = op == SymbolicOperator::log2 ? 1 : binary ? 2 : 2 + random.below(2);
    std::vector<SymbolicExpression> operands;
    for (std::size_t i = 0; i < count; ++i) {
        operands.push_back(random_expression(random, shapes, depth - 1));
    }
    return SymbolicExpression::operation(op, std::move(operands));
}

} // namespace Tessaline::Testing
