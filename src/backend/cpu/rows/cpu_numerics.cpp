// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_numerics.h"

#include "backend/common/solver_numerics.h"
#include "backend/common/tolerances.h"
#include "backend/cpu/eigen_general/limits.h"
#include "backend/cpu/rows/cpu_solver_numerics.h"
#include "backend/cpu/simd/kernels/engine_power_methods.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

#include <algorithm>

namespace Tessaline::CpuNumerics {

namespace {

using namespace BackendRegistration;

namespace Ids = BuiltinOperations;

constexpr OperandRole in0{0};
constexpr SolverPrecision single_precision{ScalarType::Complex64, PrecisionMode::native};

DenseNumericsProfile engine_profile() {
    return {.algorithm_prefix = "simd.",
            .reduction_prefix = "simd.",
            .gemm_algorithm = "simd.classical_gemm",
            .gemv_algorithm = "simd.classical_gemv",
            .accumulation_type = ScalarType::Float32,
            .norm_accumulation_type = ScalarType::Float32,
            .precision_mode = PrecisionMode::native,
            .reduction_order = ReductionOrder::library_defined,
            .tree_reduction = false,
            .absolute_tolerance = floating_tolerance<float>.absolute,
            .relative_tolerance = floating_tolerance<float>.relative};
}

std::int64_t count(int value) {
    return value;
}

ImplementationNumerics complex_eig() {
    return shifted_qr(
        "simd.balanced_shifted_qr_iteration.schur_back_substitution", PrecisionMode::widened,
        {{"convergence_tolerance", CpuFallback::deflation_tolerance<float>,
          "Trailing-row-and-column-relative deflation tolerance, guarded by original-coordinate "
          "backward error."},
         {"maximum_iterations", count(CpuFallback::maximum_iterations),
          "Maximum number of shifted QR iterations without deflation."},
         {"exceptional_shift_interval", count(CpuFallback::exceptional_shift_interval),
          "Number of non-deflating iterations between exceptional shifts."},
         {"maximum_balance_sweeps", count(CpuFallback::maximum_balance_sweeps),
          "Maximum number of radix-two matrix-balancing sweeps."},
         {"residual_tolerance", CpuFallback::residual_tolerance<float>,
          "Maximum double-precision normalised right-eigenpair residual."}},
        {"The complex64 matrix is balanced with reversible radix-two entry scaling before "
         "conversion to complex128.",
         "Shifted QR, Schur-vector updates, triangular back substitution and balance reversal use "
         "complex128 before results are rounded to complex64.",
         "Returned complex64 pairs are validated with complex128 residual accumulation."},
        {"Convergence and eigenvector accuracy are sensitive to non-normal, repeated or clustered "
         "spectra."});
}

ImplementationNumerics complex_principal_eigenvector() {
    const SymbolicExpression square = power(SymbolicExpression::dimension(in0, 0), 2);
    return make_numerics(
        "simd.power_iteration", StabilityKind::not_guaranteed,
        product({square, SymbolicExpression::symbol("iterations")}), square, PrecisionMode::native,
        ReductionOrder::library_defined, scalar_metadata(ScalarType::Complex64).name,
        {{"convergence_tolerance", double{EnginePowerMethods::convergence_tolerance},
          "Euclidean iterate-difference norm stopping tolerance."},
         {"maximum_iterations", count(EnginePowerMethods::maximum_iterations),
          "Maximum power-iteration count per starting vector."}},
        {"iterations is bounded by maximum_iterations."},
        {"Matrix-vector products and reductions use native complex single precision."},
        {"Convergence is not guaranteed for defective matrices or without a well-separated unique "
         "dominant eigenvalue."});
}

ImplementationNumerics complex_lu_factor() {
    return lu_factor_numerics("simd.partial_pivoting", single_precision);
}

/// The right-hand side passes through interleaved scratch.
ImplementationNumerics complex_solve() {
    return lu_solve_numerics("simd.lu.forward_backward_substitution", single_precision,
                             SymbolicExpression::dimension(in0, 0));
}

ImplementationNumerics complex_logdet() {
    return lu_logdet_numerics("simd.lu_logdet", single_precision);
}

struct SolverRecord {
    const OperationId* operation;
    ImplementationNumerics (*record)();
};

constexpr SolverRecord complex_solvers[] = {
    {&Ids::eig, complex_eig},
    {&Ids::principal_eigenvector, complex_principal_eigenvector},
    {&Ids::lu_factor, complex_lu_factor},
    {&Ids::solve, complex_solve},
    {&Ids::logdet, complex_logdet},
};

} // namespace

ImplementationNumerics float32(const BackendRegistryKey& key) {
    return builtin_dense_numerics(key, engine_profile());
}

ImplementationNumerics float16_float32(const BackendRegistryKey& key) {
    DenseNumericsProfile profile = engine_profile();
    profile.algorithm_prefix = "cpu.";
    profile.precision_mode = PrecisionMode::mixed;
    return builtin_dense_numerics(key, profile);
}

ImplementationNumerics complex64(const BackendRegistryKey& key) {
    const auto solver = std::ranges::find_if(
        complex_solvers, [&key](const SolverRecord& row) { return *row.operation == key.op(); });
    if (solver != std::end(complex_solvers)) {
        return solver->record();
    }
    DenseNumericsProfile profile = engine_profile();
    profile.accumulation_type = ScalarType::Complex64;
    return builtin_dense_numerics(key, profile);
}

} // namespace Tessaline::CpuNumerics
