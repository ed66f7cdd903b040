// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/runtime/cpu_worker_budget.h"

namespace Tessaline::Test {
namespace {

using Cpus = std::vector<std::size_t>;
using enum CpuNumaPolicy;

const CpuTopology two_nodes({{0, {0, 1, 2, 3}}, {2, {4, 5, 6, 7}}});

CpuRuntimeOptions options_of(CpuNumaPolicy policy, std::vector<int> nodes, Cpus cpus,
                             std::size_t threads = 0) {
    CpuRuntimeOptions options;
    options.thread_count = threads;
    options.numa_policy = policy;
    options.numa_nodes = std::move(nodes);
    options.logical_cpus = std::move(cpus);
    return options;
}

CpuRuntimeContext runtime_of(const CpuRuntimeOptions& options,
                             const CpuTopology& topology = two_nodes) {
    return {options, topology, BackendKind::cpu_scalar};
}

TEST(CpuSelection, ResolvesCpusAndThreads) {
    const Cpus all{0, 1, 2, 3, 4, 5, 6, 7};
    const struct {
        CpuRuntimeOptions options;
        Cpus selected;
        std::size_t threads;
    } cases[] = {
        {options_of(automatic, {}, {}), all, 7},
        {options_of(automatic, {}, {}, 7), all, 7},
        {options_of(automatic, {}, {}, 1), all, 1},
        {options_of(automatic, {2}, {}), {4, 5, 6, 7}, 3},
        {options_of(disabled, {2}, {}), all, 7},
        {options_of(strict, {2, 0}, {}), all, 7},
        {options_of(automatic, {1}, {}), all, 7},
        {options_of(automatic, {1, 2}, {}), {4, 5, 6, 7}, 3},
        {options_of(automatic, {}, {6, 1, 3}), {6, 1, 3}, 2},
        {options_of(strict, {2}, {6, 1, 5}), {6, 5}, 1},
        {options_of(automatic, {2}, {1, 0}), {1, 0}, 1},
        {options_of(disabled, {2}, {1, 5}), {1, 5}, 1},
        {options_of(automatic, {}, {5}), {5}, 1},
        {options_of(automatic, {}, {5, 5, 5}), {5, 5, 5}, 2},
    };
    for (const auto& [options, selected, threads] : cases) {
        const CpuRuntimeContext runtime = runtime_of(options);
        EXPECT_EQ(runtime.selected_logical_cpus(), selected);
        EXPECT_EQ(runtime.thread_count(), threads);
        EXPECT_EQ(runtime.budget()->limit(), threads);
    }
}

TEST(CpuSelection, FindsCpuZeroInAnUnknownTopology) {
    const CpuRuntimeContext runtime =
        runtime_of(options_of(strict, {}, {}), CpuTopology(std::vector<CpuNumaNode>{}));
    EXPECT_EQ(runtime.selected_logical_cpus(), Cpus{0});
    EXPECT_EQ(runtime.thread_count(), 1U);
}

TEST(CpuSelection, RefusesWhatTheTopologyCannotGive) {
    const std::string no_node = "requested NUMA node is unavailable";
    const std::string no_cpu = "requested logical CPU is unavailable";
    const std::string no_common = "requested logical CPUs do not intersect the selected NUMA nodes";
    const std::string too_many = "requested CPU thread count exceeds selected CPU capacity after "
                                 "reserving one logical CPU for the caller";
    const struct {
        CpuRuntimeOptions options;
        std::string reason;
    } cases[] = {
        {options_of(strict, {2, 1}, {}), no_node},    {options_of(strict, {-1}, {}), no_node},
        {options_of(disabled, {}, {0, 8}), no_cpu},   {options_of(automatic, {2}, {8}), no_cpu},
        {options_of(strict, {2}, {4, 8}), no_cpu},    {options_of(strict, {2}, {0, 1}), no_common},
        {options_of(automatic, {}, {}, 8), too_many}, {options_of(disabled, {}, {3}, 2), too_many},
        {options_of(strict, {1}, {8}, 99), no_node},  {options_of(strict, {2}, {0}, 99), no_common},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(message_of<std::invalid_argument>([&] { runtime_of(row.options); }),
                  "CpuRuntimeContext - " + row.reason);
    }
}

TEST(CpuSelection, SpellsThePolicies) {
    EXPECT_EQ(parse_cpu_policy<CpuNumaPolicy>("disabled"), disabled);
    EXPECT_EQ(parse_cpu_policy<CpuNumaPolicy>("auto"), automatic);
    EXPECT_EQ(parse_cpu_policy<CpuPinningPolicy>("strict"), CpuPinningPolicy::strict);
    EXPECT_EQ(parse_cpu_policy<CpuPinningPolicy>("automatic"), std::nullopt);
    EXPECT_EQ(parse_cpu_policy<CpuPinningPolicy>(""), std::nullopt);
}

TEST(CpuSelection, TakesTheMachineByDefault) {
    const CpuRuntimeContext runtime(BackendKind::cpu_simd);
    EXPECT_EQ(runtime.backend(), BackendKind::cpu_simd);
    EXPECT_EQ(runtime.topology(), system_cpu_topology());
    EXPECT_EQ(runtime.selected_logical_cpus(), system_cpu_topology().logical_cpus_for_nodes({}));
    EXPECT_EQ(runtime.options().min_parallel_work, 32768U);
}

} // namespace
} // namespace Tessaline::Test
