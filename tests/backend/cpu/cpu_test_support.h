// SPDX-License-Identifier: Apache-2.0
#pragma once

// Machines made up for tests, and the affinity of the real one.

#include "tessaline/backend/cpu/cpu_runtime_context.h"

#include <gtest/gtest.h>
#include <numeric>

namespace Tessaline::Test {

// A CPU number that no machine has.
inline constexpr std::size_t missing_cpu = 900000;

// One node with the CPUs 0 to count - 1.
inline CpuTopology one_node(std::size_t count) {
    std::vector<std::size_t> cpus(count);
    std::iota(cpus.begin(), cpus.end(), std::size_t{0});
    return CpuTopology({{0, cpus}});
}

// Workers in any number on any machine: nobody is pinned, and every loop of two goes parallel.
inline CpuRuntimeOptions unpinned_options(std::size_t threads) {
    CpuRuntimeOptions options;
    options.thread_count = threads;
    options.min_parallel_work = 0;
    options.pinning_policy = CpuPinningPolicy::disabled;
    return options;
}

inline CpuRuntimeContext unpinned_runtime(std::size_t threads) {
    return {unpinned_options(threads), one_node(threads + 1), BackendKind::cpu_simd};
}

inline std::vector<std::size_t> current_thread_cpus() {
    return CpuAffinityMask::of_current_thread().value().logical_cpus();
}

// The message of the std::exception of type Error that `function` raises, or a note of its absence.
template <typename Error, typename Function>
std::string message_of(const Function& function) {
    try {
        function();
    } catch (const Error& error) {
        return error.what();
    }
    return "nothing raised";
}

} // namespace Tessaline::Test
