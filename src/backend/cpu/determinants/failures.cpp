// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/determinants/failures.h"

#include "tessaline/catalogue/errors.h"

namespace Tessaline::CpuStructured {

void fail(std::int32_t status, const char* detail, const char* operation,
          const std::string& message) {
    throw SolverError("CPU", status, detail, operation, message, ErrorReason::solver_failure);
}

} // namespace Tessaline::CpuStructured
