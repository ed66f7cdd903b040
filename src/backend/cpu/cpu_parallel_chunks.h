// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parallel loop of CPU kernels.

#include "tessaline/backend/cpu/cpu_process_step.h"

#include <cstdint>
#include <limits>

namespace Tessaline {

/// The product of the factors, or the largest number where that is exceeded: an estimate of work.
template <typename... Factors>
std::uint64_t work_product(Factors... factors) {
    std::uint64_t work = 1;
    const bool fits = (!__builtin_mul_overflow(work, std::uint64_t{factors}, &work) && ...);
    return fits ? work : std::numeric_limits<std::uint64_t>::max();
}

/// Calls `body(begin, end)` on ranges that cover [0, count) once: on workers where the thread's
/// current CPU context has a runtime that finds `work` worth it, else once on this thread. A body
/// writes nothing that another range's body touches.
template <typename Body>
void parallel_chunks(std::uint64_t count, std::uint64_t work, const Body& body) {
    const CpuExecutionContext* context = CpuExecutionContextDetail::current;
    if (context == nullptr || context->runtime() == nullptr) {
        body(std::uint64_t{0}, count);
    } else {
        context->runtime()->parallel_for_chunks(0, count, work, body);
    }
}

} // namespace Tessaline
