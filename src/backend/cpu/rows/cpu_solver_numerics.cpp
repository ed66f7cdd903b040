// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_solver_numerics.h"

#include <utility>

namespace Tessaline::CpuNumerics {

namespace {

using namespace BackendRegistration;

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

ImplementationNumerics lu_factor(std::string algorithm, SolverPrecision precision) {
    return sequential_record(std::move(algorithm), precision, power(order_of(out0), 3),
                             SymbolicExpression::constant(0), "Pivot selection and updates use",
                             "Partial pivoting can exhibit growth for adversarial matrices.");
}

ImplementationNumerics solve(std::string algorithm, SolverPrecision precision,
                             SymbolicExpression auxiliary_space) {
    return sequential_record(std::move(algorithm), precision, power(order_of(in0), 2),
                             std::move(auxiliary_space), "Triangular substitutions accumulate in",
                             "Forward error depends on conditioning and the stored LU factors.");
}

ImplementationNumerics lu_logdet(std::string algorithm, SolverPrecision precision) {
    return sequential_record(std::move(algorithm), precision, order_of(in0),
                             SymbolicExpression::constant(0), "The logarithms are evaluated in",
                             "Accuracy degrades when diagonal factors are badly scaled.");
}

ImplementationNumerics shifted_qr(std::string algorithm, PrecisionMode mode,
                                  std::vector<AlgorithmParameter> parameters,
                                  std::vector<std::string> precision_notes,
                                  std::vector<std::string> notes) {
    const SymbolicExpression cube = power(order_of(in0), 3);
    // The recovery of the eigenvectors costs a cube where no iteration is needed.
    return make_numerics(
        std::move(algorithm), StabilityKind::unknown,
        sum({product({cube, SymbolicExpression::symbol("iterations")}), cube}),
        power(order_of(in0), 2), mode, ReductionOrder::sequential,
        scalar_metadata(ScalarType::Complex128).name, std::move(parameters),
        {"iterations is bounded by maximum_iterations times the number of non-trivial active "
         "dimensions."},
        std::move(precision_notes), std::move(notes));
}

} // namespace Tessaline::CpuNumerics
