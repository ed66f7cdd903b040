// SPDX-License-Identifier: Apache-2.0
#include "backend/common/solver_numerics.h"

#include <utility>

namespace Tessaline::BackendRegistration {

namespace {

constexpr OperandRole in0{0};
constexpr OperandRole out0{operand_role_limit};

SymbolicExpression order_of(OperandRole role) {
    return SymbolicExpression::dimension(role, 0);
}

/// A record of scalar loops in a fixed order.
ImplementationNumerics sequential_record(std::string algorithm, SolverPrecision precision,
                                         SymbolicExpression work,
                                         SymbolicExpression auxiliary_space,
                                         const char* what_is_native, std::string note) {
    const bool single = scalar_metadata(scalar_metadata(precision.type).component).size == 4;
    return make_numerics(
        std::move(algorithm), StabilityKind::conditionally_stable, std::move(work),
        std::move(auxiliary_space), precision.mode, ReductionOrder::sequential,
        scalar_metadata(precision.type).name, {}, {},
        {std::string(what_is_native) + " native " + (single ? "single" : "double") + " precision."},
        {std::move(note)});
}

} // namespace

ImplementationNumerics lu_factor_numerics(std::string algorithm, SolverPrecision precision) {
    return sequential_record(std::move(algorithm), precision, power(order_of(out0), 3),
                             SymbolicExpression::constant(0), "Pivot selection and updates use",
                             "Partial pivoting can exhibit growth for adversarial matrices.");
}

ImplementationNumerics lu_solve_numerics(std::string algorithm, SolverPrecision precision,
                                         SymbolicExpression auxiliary_space) {
    return sequential_record(std::move(algorithm), precision, power(order_of(in0), 2),
                             std::move(auxiliary_space), "Triangular substitutions accumulate in",
                             "Forward error depends on conditioning and the stored LU factors.");
}

ImplementationNumerics lu_logdet_numerics(std::string algorithm, SolverPrecision precision) {
    return sequential_record(std::move(algorithm), precision, order_of(in0),
                             SymbolicExpression::constant(0), "The logarithms are evaluated in",
                             "Accuracy degrades when diagonal factors are badly scaled.");
}

} // namespace Tessaline::BackendRegistration
