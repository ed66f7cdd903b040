// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_floating_numerics.h"

#include "backend/common/solver_numerics.h"
#include "backend/common/tolerances.h"
#include "backend/cpu/eigen_general/limits.h"
#include "backend/cpu/eigen_hermitian/structured_solver.h"
#include "backend/cpu/numbers/floating_policies.h"
#include "backend/cpu/rows/cpu_solver_numerics.h"

namespace Tessaline::CpuNumerics {

namespace {

using namespace BackendRegistration;

using Operation = FloatingOperation;

constexpr OperandRole in0{0};

/// What the records take from a policy.
struct PolicyNumerics {
    DenseNumericsProfile dense;
    SolverPrecision factors;    ///< of the solvers that work in compute type
    SolverPrecision structured; ///< of those that work in double precision
    double convergence_tolerance;
    double residual_tolerance;
};

template <typename T>
PolicyNumerics policy_numerics() {
    using Policy = PolicyOf<T>;
    using Real = Component<typename Policy::Compute>;
    const ScalarType compute = Policy::compute_type;
    const PrecisionMode mode =
        Policy::storage_type == compute ? PrecisionMode::native : PrecisionMode::mixed;
    return {.dense = {.algorithm_prefix = "cpu.",
                      .reduction_prefix = "cpu.",
                      .gemm_algorithm = "cpu.classical_gemm",
                      .gemv_algorithm = "cpu.classical_gemv",
                      .accumulation_type = compute,
                      .norm_accumulation_type = ElementTraits<Real>::scalar_type,
                      .precision_mode = mode,
                      .reduction_order = ReductionOrder::sequential,
                      .tree_reduction = false,
                      .absolute_tolerance = floating_tolerance<T>.absolute,
                      .relative_tolerance = floating_tolerance<T>.relative},
            .factors = {compute, mode},
            .structured = {Policy::is_complex ? ScalarType::Complex128 : ScalarType::Float64,
                           std::is_same_v<Real, double> ? PrecisionMode::native
                                                        : PrecisionMode::widened},
            .convergence_tolerance = CpuFallback::deflation_tolerance<Real>,
            .residual_tolerance = CpuFallback::residual_tolerance<Real>};
}

SymbolicExpression order_of_input() {
    return SymbolicExpression::dimension(in0, 0);
}

ImplementationNumerics structured(std::string algorithm, const PolicyNumerics& policy,
                                  SymbolicExpression work,
                                  std::vector<AlgorithmParameter> parameters = {},
                                  std::vector<std::string> complexity_notes = {}) {
    return make_numerics(
        std::move(algorithm), StabilityKind::conditionally_stable, std::move(work),
        power(order_of_input(), 2), policy.structured.mode, ReductionOrder::sequential,
        scalar_metadata(policy.structured.type).name, std::move(parameters),
        std::move(complexity_notes), {},
        {"Input is copied before factorisation; real inputs use real working storage."});
}

ImplementationNumerics hermitian_jacobi(const PolicyNumerics& policy) {
    // Convergence is tested before the first sweep and after each.
    return structured(
        "cpu.hermitian_jacobi", policy,
        sum({product({power(order_of_input(), 3), SymbolicExpression::symbol("sweeps")}),
             power(order_of_input(), 2)}),
        {{"maximum_sweeps", std::int64_t{CpuStructured::maximum_jacobi_sweeps},
          "Cyclic Jacobi sweep limit, configured at build time."}},
        {"sweeps is bounded by maximum_sweeps."});
}

ImplementationNumerics eigenvectors(std::string algorithm, const PolicyNumerics& policy) {
    return shifted_qr(
        std::move(algorithm), policy.structured.mode,
        {{"maximum_iterations", std::int64_t{CpuFallback::maximum_iterations},
          "Per active dimension."},
         {"convergence_tolerance", policy.convergence_tolerance, "Relative deflation tolerance."},
         {"residual_tolerance", policy.residual_tolerance, "Normalised right-eigenpair residual."}},
        {},
        {"Real inputs are embedded in complex working storage; output precision "
         "follows the signature."});
}

ImplementationNumerics matrix_power(const PolicyNumerics& policy, const BackendRegistryKey& key) {
    ImplementationNumerics record = builtin_dense_numerics(key, policy.dense);
    record.precision.notes.emplace_back(
        "Intermediate matrices use the compute dtype; only the final output is rounded.");
    return record;
}

ImplementationNumerics record_of(Operation operation, const PolicyNumerics& policy,
                                 const BackendRegistryKey& key) {
    switch (operation) {
    case Operation::lu_factor:
        return lu_factor_numerics("cpu.partial_pivoting_lu", policy.factors);
    case Operation::solve:
        // A right-hand side that is stored otherwise than computed is copied.
        return lu_solve_numerics("cpu.triangular_substitution", policy.factors,
                                 policy.factors.mode == PrecisionMode::native
                                     ? SymbolicExpression::constant(0)
                                     : order_of_input());
    case Operation::logdet:
        return lu_logdet_numerics("cpu.lu_logdet", policy.factors);
    case Operation::eig:
        return eigenvectors("cpu.balanced_shifted_qr", policy);
    case Operation::principal_eigenvector:
        return eigenvectors("cpu.balanced_shifted_qr.principal_selection", policy);
    case Operation::matrix_power:
        return matrix_power(policy, key);
    case Operation::eigh:
    case Operation::eigvalsh:
        return hermitian_jacobi(policy);
    case Operation::slogdet:
        return structured("cpu.partial_pivoting_slogdet", policy, power(order_of_input(), 3));
    case Operation::logdet_positive_definite:
        return structured("cpu.cholesky_logdet", policy, power(order_of_input(), 3));
    default:
        return builtin_dense_numerics(key, policy.dense);
    }
}

} // namespace

template <typename T>
ImplementationNumerics floating(FloatingOperation operation, const BackendRegistryKey& key) {
    static const PolicyNumerics policy = policy_numerics<T>();
    return record_of(operation, policy, key);
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template ImplementationNumerics floating<Stored>(             \
                                         FloatingOperation, const BackendRegistryKey&);)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline::CpuNumerics
