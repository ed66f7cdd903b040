// SPDX-License-Identifier: Apache-2.0
// Many threads, contexts and loops at once. TESSALINE_STRESS_ROUNDS sets the length.

#include "backend/cpu/cpu_test_support.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <pthread.h>
#include <random>
#include <sched.h>
#include <thread>

namespace {

// While set, every thread seems to have many CPUs, so that workers poll on the smallest machine.
std::atomic<bool> many_cpus{false};

} // namespace

extern "C" int pthread_getaffinity_np(pthread_t, std::size_t bytes, cpu_set_t* set) noexcept {
    if (sched_getaffinity(0, bytes, set) != 0) {
        return errno;
    }
    for (std::size_t cpu = 0; many_cpus && cpu < 64; ++cpu) {
        CPU_SET_S(cpu, bytes, set);
    }
    return 0;
}

namespace Tessaline::Test {
namespace {

int rounds() {
    const char* text = std::getenv("TESSALINE_STRESS_ROUNDS");
    return text != nullptr ? std::atoi(text) : 300;
}

// Sums [0, count) by a loop, with an error from one index if `bad` is below count.
void run_checked_loop(const CpuRuntimeContext& runtime, std::size_t count, std::size_t bad) {
    std::vector<std::size_t> seen(count, 0);
    bool raised = false;
    try {
        runtime.parallel_for_chunks(0, count, 1, [&](std::size_t begin, std::size_t end) {
            for (std::size_t i = begin; i < end; ++i) {
                ++seen[i];
            }
            if (begin <= bad && bad < end) {
                throw std::out_of_range("bad");
            }
        });
    } catch (const std::out_of_range&) {
        raised = true;
    }
    ASSERT_EQ(raised, bad < count);
    ASSERT_EQ(std::ranges::count(seen, 1U), static_cast<std::ptrdiff_t>(count));
}

void run_many_loops(const std::vector<std::unique_ptr<CpuRuntimeContext>>& shared, unsigned seed) {
    std::mt19937 random(seed);
    for (int round = 0; round < rounds(); ++round) {
        const std::size_t count = random() % 40;
        const std::size_t bad = random() % 80;
        const CpuRuntimeContext& runtime = *shared[random() % shared.size()];
        run_checked_loop(runtime, count, bad);
        CpuRuntimeOptions options = unpinned_options(2);
        options.numa_nodes = {static_cast<int>(random() % 2)};
        run_checked_loop(*runtime.local_runtime_for_numa_node(options.numa_nodes.front(), options,
                                                              BackendKind::cpu_simd),
                         count, bad);
        if (random() % 8 == 0) {
            run_checked_loop(unpinned_runtime(2 + random() % 3), count, bad);
        }
        if (random() % 8 == 0) {
            // Longer than workers poll, so that they are woken from sleep, too.
            std::this_thread::sleep_for(std::chrono::microseconds(100));
        }
    }
}

class CpuRuntimeStress : public testing::TestWithParam<bool> {};

TEST_P(CpuRuntimeStress, ConcurrentLoopsOfManyContextsAllEndAsTheyShould) {
    many_cpus = GetParam();
    const CpuTopology topology({{0, {0, 1, 2}}, {1, {3, 4, 5}}});
    std::vector<std::unique_ptr<CpuRuntimeContext>> shared;
    for (const std::size_t threads : {1U, 2U, 4U}) {
        for (const auto pinning : {CpuPinningPolicy::disabled, CpuPinningPolicy::automatic}) {
            CpuRuntimeOptions options = unpinned_options(threads);
            options.pinning_policy = pinning;
            shared.push_back(
                std::make_unique<CpuRuntimeContext>(options, topology, BackendKind::cpu_simd));
        }
    }
    std::vector<std::thread> callers;
    for (unsigned seed = 1; seed <= 4; ++seed) {
        callers.emplace_back([&shared, seed] { run_many_loops(shared, seed); });
    }
    for (std::thread& caller : callers) {
        caller.join();
    }
    many_cpus = false;
}

INSTANTIATE_TEST_SUITE_P(Workers, CpuRuntimeStress, testing::Bool(), [](const auto& test) {
    return test.param ? std::string("Poll") : std::string("Sleep");
});

} // namespace
} // namespace Tessaline::Test
