// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_solver_numerics.h"

#include <utility>

namespace Tessaline::CpuNumerics {

using namespace BackendRegistration;

ImplementationNumerics shifted_qr(std::string algorithm, PrecisionMode mode,
                                  std::vector<AlgorithmParameter> parameters,
                                  std::vector<std::string> precision_notes,
                                  std::vector<std::string> notes) {
    const SymbolicExpression order = SymbolicExpression::dimension(OperandRole{0}, 0);
    const SymbolicExpression cube = power(order, 3);
    // The recovery of the eigenvectors costs a cube where no iteration is needed.
    return make_numerics(
        std::move(algorithm), StabilityKind::unknown,
        sum({product({cube, SymbolicExpression::symbol("iterations")}), cube}), power(order, 2),
        mode, ReductionOrder::sequential, scalar_metadata(ScalarType::Complex128).name,
        std::move(parameters),
        {"iterations is bounded by maximum_iterations times the number of non-trivial active "
         "dimensions."},
        std::move(precision_notes), std::move(notes));
}

} // namespace Tessaline::CpuNumerics
