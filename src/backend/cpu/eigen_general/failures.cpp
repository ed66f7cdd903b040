// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/eigen_general/failures.h"

#include "backend/cpu/eigen_general/limits.h"
#include "tessaline/catalogue/errors.h"

namespace Tessaline::CpuFallback {

namespace {

constexpr const char* library = "CPU";
constexpr const char* operation = "SimdEngine::eigen";

} // namespace

void throw_solver_failure(const std::string& detail) {
    throw SolverError(library, -1, detail, operation, std::string(operation) + " - " + detail,
                      ErrorReason::solver_failure);
}

void throw_non_convergence(std::size_t active) {
    const std::string detail = "failed to converge after " + std::to_string(maximum_iterations) +
                               " shifted QR iterations without deflation at active dimension " +
                               std::to_string(active);
    throw SolverError(library, maximum_iterations, detail, operation,
                      std::string(operation) + " - QR iteration " + detail,
                      ErrorReason::non_convergence);
}

} // namespace Tessaline::CpuFallback
