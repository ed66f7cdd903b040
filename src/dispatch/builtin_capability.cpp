// SPDX-License-Identifier: Apache-2.0
#include "tessaline/dispatch/builtin_capability.h"

#include <utility>

namespace Tessaline::BackendRegistration {

SymbolicExpression sum(std::vector<SymbolicExpression> terms) {
    return SymbolicExpression::operation(SymbolicOperator::add, std::move(terms));
}

SymbolicExpression product(std::vector<SymbolicExpression> factors) {
    return SymbolicExpression::operation(SymbolicOperator::multiply, std::move(factors));
}

SymbolicExpression power(SymbolicExpression base, long exponent) {
    return SymbolicExpression::operation(SymbolicOperator::power,
                                         {std::move(base), SymbolicExpression::constant(exponent)});
}

SymbolicExpression minimum(SymbolicExpression a, SymbolicExpression b) {
    return SymbolicExpression::operation(SymbolicOperator::minimum, {std::move(a), std::move(b)});
}

SymbolicExpression maximum(SymbolicExpression a, SymbolicExpression b) {
    return SymbolicExpression::operation(SymbolicOperator::maximum, {std::move(a), std::move(b)});
}

SymbolicExpression logarithm(SymbolicExpression x) {
    return SymbolicExpression::operation(SymbolicOperator::log2, {std::move(x)});
}

ImplementationNumerics
make_numerics(std::string algorithm, StabilityKind stability, SymbolicExpression work,
              SymbolicExpression auxiliary_space, PrecisionMode mode,
              ReductionOrder reduction_order, std::optional<std::string> accumulation_dtype,
              std::vector<AlgorithmParameter> parameters, std::vector<std::string> complexity_notes,
              std::vector<std::string> precision_notes, std::vector<std::string> notes) {
    return {std::move(algorithm),
            stability,
            {std::move(work), std::move(auxiliary_space), std::move(complexity_notes)},
            {mode, std::move(accumulation_dtype), reduction_order, std::move(precision_notes)},
            std::move(parameters),
            std::move(notes)};
}

} // namespace Tessaline::BackendRegistration
