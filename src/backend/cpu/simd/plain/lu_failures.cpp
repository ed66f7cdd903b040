// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/simd/plain/lu_failures.h"

#include "tessaline/catalogue/errors.h"
#include "tessaline/storage/checked_size_cast.h"

namespace Tessaline::LuFailures {

void singular(std::uint64_t k) {
    throw SolverError("CPU", checked_size_cast<int>(k + 1), "zero LU pivot", "tessaline.lu_factor",
                      "LU factorisation - singular matrix at pivot " + std::to_string(k),
                      ErrorReason::singular);
}

void engine_singular() {
    throw SolverError("CPU", 0, "singular matrix", "SimdEngine::lu_decomp",
                      "SimdEngine::lu_decomp - singular matrix", ErrorReason::singular);
}

void non_finite_pivot() {
    throw std::invalid_argument("LU factorisation - non-finite pivot");
}

void multiplier_underflow() {
    throw SolverError("CPU", -1, "LU multiplier underflow", "tessaline.lu_factor",
                      "LU multiplier range cannot be preserved", ErrorReason::solver_failure);
}

void invalid_pivot() {
    throw std::invalid_argument("solve - invalid LU pivot");
}

void engine_incompatible_rhs() {
    throw std::invalid_argument("SimdEngine::solve - incompatible RHS size");
}

} // namespace Tessaline::LuFailures
