// SPDX-License-Identifier: Apache-2.0
#pragma once

// The parallel loop of CPU kernels.

#include "backend/cpu/runtime/stop_point.h"
#include "tessaline/backend/cpu/cpu_process_step.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace Tessaline {

/// The product of the factors, or the largest number where that is exceeded: an estimate of work.
template <typename... Factors>
std::uint64_t work_of(Factors... factors) {
    std::uint64_t work = 1;
    const bool fits = (!__builtin_mul_overflow(work, std::uint64_t{factors}, &work) && ...);
    return fits ? work : std::numeric_limits<std::uint64_t>::max();
}

/// Scalar operations between two stop points of a loop: some tens of milliseconds.
inline constexpr std::uint64_t work_of_piece = std::uint64_t{1} << 28U;

/// How many of `count` indices a piece of a loop has, a multiple of `least` where it is not all.
constexpr std::uint64_t piece_length(std::uint64_t count, std::uint64_t work, std::uint64_t least) {
    const std::uint64_t pieces = work / work_of_piece + 1;
    return pieces == 1 ? count : (count / pieces / least + 1) * least;
}

/// Calls `body(begin, end)` on ranges that cover [0, count) once: on workers where the thread's
/// current CPU context has a runtime that finds `work` worth it, else on this thread. Of long loops
/// each thread's share is cut into pieces of at least `least` indices, with a stop point before
/// each. A body writes nothing that another range's body touches.
template <typename Body>
void for_chunks(std::uint64_t count, std::uint64_t work, const Body& body,
                std::uint64_t least = 64) {
    const std::uint64_t length = piece_length(count, work, least);
    const auto by_pieces = [&body, length](std::uint64_t begin, std::uint64_t end) {
        for (; end - begin > length; begin += length) {
            body(begin, begin + length);
            stop_point();
        }
        body(begin, end);
    };
    const CpuExecutionContext* context = CpuExecutionContextDetail::current;
    if (context == nullptr || context->runtime() == nullptr) {
        by_pieces(std::uint64_t{0}, count);
    } else {
        context->runtime()->parallel_for_chunks(0, count, work, by_pieces);
    }
}

/// For products, whose kernels have stop points of their own but go through all rows between two,
/// and of which each piece reads the right factor anew.
inline constexpr std::uint64_t least_rows_of_product = 4096;

} // namespace Tessaline
