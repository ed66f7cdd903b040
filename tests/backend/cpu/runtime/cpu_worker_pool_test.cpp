// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/runtime/cpu_worker_pool.h"

#include <algorithm>
#include <condition_variable>
#include <thread>

namespace Tessaline::Test {
namespace {

using namespace CpuWorkerPoolDetail;

CpuWorkerPoolConfig config_of(std::size_t workers, std::vector<CpuWorkerBinding> bindings = {},
                              bool strict = false) {
    return {workers, std::move(bindings), shared_cpu_worker_budget(workers), strict};
}

TEST(CpuWorkerPool, RunsJobsInTheOrderOfSubmissionAndDrainsTheQueueAtItsEnd) {
    std::vector<int> order;
    {
        CpuWorkerPool pool(config_of(1));
        for (int job = 0; job < 100; ++job) {
            pool.submit([&order, job] { order.push_back(job); });
        }
    }
    ASSERT_EQ(order.size(), 100U);
    EXPECT_TRUE(std::ranges::is_sorted(order));
}

TEST(CpuWorkerPool, WakesUpAfterEveryLengthOfPause) {
    CpuWorkerPool pool(config_of(1));
    for (int microseconds = 0; microseconds < 200; microseconds += 5) {
        std::atomic<bool> done{false};
        pool.submit([&done] {
            done = true;
            done.notify_one();
        });
        done.wait(false);
        std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
    }
}

TEST(CpuWorkerPool, PinsWorkersToTheirBindings) {
    const std::size_t cpu = current_thread_cpus().back();
    CpuWorkerPool pool(config_of(2, {{cpu, 0, true}}, true));
    // Two jobs that wait for each other run on both workers, one of which has no binding.
    std::mutex mutex;
    std::condition_variable arrived;
    std::vector<std::vector<std::size_t>> masks;
    for (int job = 0; job < 2; ++job) {
        pool.submit([&] {
            std::unique_lock lock(mutex);
            masks.push_back(current_thread_cpus());
            arrived.notify_all();
            arrived.wait(lock, [&] { return masks.size() == 2; });
        });
    }
    pool.stop_workers();
    std::ranges::sort(masks, {}, &std::vector<std::size_t>::size);
    EXPECT_EQ(masks.front(), std::vector{cpu});
    EXPECT_EQ(masks.back(), current_thread_cpus());
}

TEST(CpuWorkerPool, FailsOrGoesOnWhenAWorkerCannotBePinned) {
    const std::vector<CpuWorkerBinding> bindings{{missing_cpu, -1, true},
                                                 {current_thread_cpus().front(), 0, true}};
    EXPECT_EQ(message_of<std::runtime_error>(
                  [&] { shared_cpu_worker_pool(config_of(2, bindings, true)); }),
              "CpuWorkerPool - failed to pin one or more CPU worker threads");
    std::atomic<int> ran{0};
    const auto pool = shared_cpu_worker_pool(config_of(2, bindings, false));
    pool->submit([&] { ++ran; });
    pool->stop_workers();
    EXPECT_EQ(ran, 1);
}

TEST(SharedCpuWorkers, AreSharedByConfigurationWhileHeld) {
    const auto budget = shared_cpu_worker_budget(2);
    EXPECT_EQ(shared_cpu_worker_budget(2), budget);
    EXPECT_NE(shared_cpu_worker_budget(3), budget);

    const CpuWorkerPoolConfig config = config_of(2, {{0, 0, true}});
    const auto pool = shared_cpu_worker_pool(config);
    EXPECT_EQ(shared_cpu_worker_pool(config), pool);
    CpuWorkerPoolConfig other = config;
    other.bindings[0].numa_node = 1;
    EXPECT_NE(shared_cpu_worker_pool(other), pool);
    other = config;
    other.bindings.push_back({});
    EXPECT_NE(shared_cpu_worker_pool(other), pool);
    other = config;
    other.strict_pinning = true;
    EXPECT_NE(shared_cpu_worker_pool(other), pool);
    other = config;
    other.budget = std::make_shared<CpuWorkerBudget>(2);
    EXPECT_NE(shared_cpu_worker_pool(other), pool);
    EXPECT_EQ(shared_cpu_worker_pool(config_of(1)), nullptr);
}

TEST(SharedCpuWorkers, EndWithTheirLastHolder) {
    std::weak_ptr<CpuWorkerBudget> budget;
    std::weak_ptr<CpuWorkerPool> pool;
    {
        const CpuRuntimeContext first = unpinned_runtime(5);
        const auto second = std::make_unique<CpuRuntimeContext>(unpinned_options(5), one_node(9),
                                                                BackendKind::cpu_scalar);
        EXPECT_EQ(first.budget(), second->budget());
        EXPECT_EQ(first.parallel_impl().pool, second->parallel_impl().pool);
        budget = first.budget();
        pool = second->parallel_impl().pool;
    }
    EXPECT_TRUE(pool.expired());
    EXPECT_TRUE(budget.expired());
}

TEST(LocalRuntimes, AreMadeOnceForEachRequest) {
    const CpuTopology topology({{0, {0, 1, 2}}, {1, {3, 4, 5}}});
    const CpuRuntimeContext parent(unpinned_options(4), topology, BackendKind::cpu_simd);
    CpuRuntimeOptions options = unpinned_options(2);
    options.numa_nodes = {1};
    const auto local = parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_simd);
    EXPECT_EQ(local->selected_logical_cpus(), (std::vector<std::size_t>{3, 4, 5}));
    EXPECT_EQ(local->budget(), parent.budget());
    EXPECT_EQ(parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_simd), local);
    EXPECT_NE(parent.local_runtime_for_numa_node(0, options, BackendKind::cpu_simd), local);
    EXPECT_NE(parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_scalar), local);
    options.thread_count = 0;
    const auto resolved = parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_simd);
    EXPECT_NE(resolved, local);
    EXPECT_EQ(parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_simd), resolved);
    options.thread_count = 3;
    EXPECT_THROW(parent.local_runtime_for_numa_node(1, options, BackendKind::cpu_simd),
                 std::invalid_argument);
}

TEST(CpuWorkerBudget, HoldsForAParentAndItsLocalRuntimesTogether) {
    const CpuTopology topology({{0, {0, 1, 2}}, {1, {3, 4, 5}}});
    const CpuRuntimeContext parent(unpinned_options(2), topology, BackendKind::cpu_simd);
    std::vector<std::shared_ptr<CpuRuntimeContext>> locals;
    for (const int node : {0, 1}) {
        CpuRuntimeOptions options = unpinned_options(2);
        options.numa_nodes = {node};
        // The parent's pool has the same configuration but for these bindings.
        options.pinning_policy = CpuPinningPolicy::automatic;
        locals.push_back(parent.local_runtime_for_numa_node(node, options, BackendKind::cpu_simd));
    }
    std::atomic<int> active{0};
    std::atomic<int> most{0};
    std::atomic<int> ran{0};
    const auto body = [&](std::size_t, std::size_t) {
        const int now = ++active;
        int seen = most;
        while (now > seen && !most.compare_exchange_weak(seen, now)) {
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100));
        --active;
        ++ran;
    };
    const auto loops = [&](const CpuRuntimeContext& runtime) {
        for (int loop = 0; loop < 50; ++loop) {
            runtime.parallel_for_chunks(0, 2, 1, body);
        }
    };
    std::thread first(loops, std::cref(*locals[0]));
    std::thread second(loops, std::cref(*locals[1]));
    loops(parent);
    first.join();
    second.join();
    EXPECT_EQ(ran, 300);
    EXPECT_EQ(most, 2);
}

TEST(CpuWorkerBudget, WithoutLimitNeverWaits) {
    CpuWorkerBudget budget(0);
    budget.acquire();
    budget.acquire();
    budget.release();
    const CpuWorkerBudgetScope none(nullptr);
}

} // namespace
} // namespace Tessaline::Test
