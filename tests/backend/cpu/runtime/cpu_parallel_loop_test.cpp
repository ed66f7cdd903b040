// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/runtime/cpu_worker_pool.h"
#include "backend/cpu/runtime/run_stop.h"
#include "backend/cpu/steps/cpu_chunks.h"
#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <cfenv>
#include <limits>
#include <set>
#include <stop_token>
#include <thread>

namespace Tessaline::Test {
namespace {

using Ranges = std::vector<std::pair<std::size_t, std::size_t>>;

// What the bodies of one loop were called with, and on which threads.
struct Calls {
    std::mutex mutex;
    Ranges ranges;
    std::set<std::thread::id> threads;

    void operator()(std::size_t begin, std::size_t end) {
        const std::lock_guard lock(mutex);
        ranges.emplace_back(begin, end);
        threads.insert(std::this_thread::get_id());
    }
    bool ran_here() const { return threads == std::set{std::this_thread::get_id()}; }
    Ranges sorted() const {
        Ranges result = ranges;
        std::ranges::sort(result);
        return result;
    }
};

TEST(ParallelForChunks, CutsRangesByCountAndThreadsAlone) {
    const std::size_t huge = std::numeric_limits<std::size_t>::max();
    const std::size_t quarter = huge / 4; // of huge - 1 it is half an index more
    const struct {
        std::size_t threads, first, last;
        Ranges ranges;
    } cases[] = {
        {3, 0, 5, {{0, 1}, {1, 3}, {3, 5}}},
        {3, 7, 9, {{7, 8}, {8, 9}}},
        {4, 10, 14, {{10, 11}, {11, 12}, {12, 13}, {13, 14}}},
        {4, 0, 11, {{0, 2}, {2, 5}, {5, 8}, {8, 11}}},
        {2, 0, huge, {{0, huge / 2}, {huge / 2, huge}}},
        {4,
         1,
         huge,
         {{1, quarter + 1},
          {quarter + 1, 2 * quarter + 2},
          {2 * quarter + 2, 3 * quarter + 2},
          {3 * quarter + 2, huge}}},
    };
    for (const auto& [threads, first, last, ranges] : cases) {
        Calls calls;
        unpinned_runtime(threads).parallel_for_chunks(first, last, 1, calls);
        EXPECT_EQ(calls.sorted(), ranges) << threads << " threads, " << first << " to " << last;
        EXPECT_EQ(calls.threads.count(std::this_thread::get_id()), 0U) << "the caller only waits";
    }
}

TEST(ParallelForChunks, RunsSmallLoopsOnTheCaller) {
    CpuRuntimeOptions options = unpinned_options(2);
    options.min_parallel_work = 100;
    const CpuRuntimeContext two(options, one_node(3), BackendKind::cpu_simd);
    const CpuRuntimeContext one = unpinned_runtime(1);
    const struct {
        const CpuRuntimeContext& runtime;
        std::size_t first, last, work;
        Ranges ranges;
        bool serial;
    } cases[] = {
        {two, 3, 9, 99, {{3, 9}}, true},  {two, 3, 9, 100, {{3, 6}, {6, 9}}, false},
        {two, 3, 4, 500, {{3, 4}}, true}, {one, 3, 9, 500, {{3, 9}}, true},
        {two, 9, 9, 500, {}, false},      {two, 9, 3, 500, {}, false},
    };
    for (const auto& [runtime, first, last, work, ranges, serial] : cases) {
        Calls calls;
        runtime.parallel_for_chunks(first, last, work, calls);
        EXPECT_EQ(calls.sorted(), ranges) << first << " to " << last << ", work " << work;
        EXPECT_EQ(calls.ran_here(), serial) << first << " to " << last << ", work " << work;
    }
    EXPECT_EQ(one.parallel_impl().pool, nullptr);
}

TEST(ParallelForChunks, KeepsNestedLoopsInOnePiece) {
    const CpuRuntimeContext outer = unpinned_runtime(2);
    const CpuRuntimeContext other = unpinned_runtime(3);
    std::atomic<int> in_one_piece{0};
    outer.parallel_for_chunks(0, 2, 1, [&](std::size_t, std::size_t) {
        for (const CpuRuntimeContext* runtime : {&outer, &other}) {
            Calls calls;
            runtime->parallel_for_chunks(5, 50, 1, calls);
            in_one_piece += calls.ran_here() && calls.ranges == Ranges{{5, 50}};
        }
    });
    EXPECT_EQ(in_one_piece, 4);

    // A serial loop is no parallel body: what lies inside it may fan out.
    Calls calls;
    outer.parallel_for_chunks(
        0, 1, 1, [&](std::size_t, std::size_t) { outer.parallel_for_chunks(0, 4, 1, calls); });
    EXPECT_EQ(calls.sorted(), (Ranges{{0, 2}, {2, 4}}));
}

TEST(ParallelForChunks, RaisesTheFirstErrorAfterEveryChunkHasRun) {
    const CpuRuntimeContext runtime = unpinned_runtime(4);
    std::atomic<int> ran{0};
    std::atomic<bool> second_may_throw{false};
    const auto body = [&](std::size_t begin, std::size_t) {
        if (begin == 2) {
            second_may_throw = true;
            throw std::runtime_error("first");
        }
        if (begin == 3) {
            while (!second_may_throw) {
                std::this_thread::yield();
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
            throw std::runtime_error("second");
        }
        ++ran;
    };
    EXPECT_EQ(message_of<std::runtime_error>([&] { runtime.parallel_for_chunks(0, 4, 1, body); }),
              "first");
    EXPECT_EQ(ran, 2);
}

TEST(ParallelForChunks, FailsOnceTheWorkersAreStopping) {
    const CpuRuntimeContext runtime = unpinned_runtime(2);
    runtime.parallel_impl().pool->stop_workers();
    Calls calls;
    EXPECT_EQ(message_of<std::runtime_error>([&] { runtime.parallel_for_chunks(0, 2, 1, calls); }),
              "CpuRuntimeContext::parallel_for - runtime is stopping");
    EXPECT_TRUE(calls.ranges.empty());
}

TEST(ParallelForChunks, WaitsForTheChunksThatWereSubmittedBeforeAStop) {
    for (int round = 0; round < 200; ++round) {
        const CpuRuntimeContext runtime = unpinned_runtime(4);
        const auto& pool = runtime.parallel_impl().pool;
        std::atomic<int> started{0};
        std::atomic<int> ended{0};
        std::thread stopper([&] { pool->stop_workers(); });
        bool failed = false;
        try {
            runtime.parallel_for_chunks(0, 4, 1, [&](std::size_t, std::size_t) {
                ++started;
                std::this_thread::yield();
                ++ended;
            });
        } catch (const std::runtime_error&) {
            failed = true;
        }
        const int ended_at_return = ended;
        EXPECT_TRUE(failed || ended_at_return == 4);
        stopper.join();
        EXPECT_EQ(started, ended_at_return) << "a chunk ran after the loop had returned";
    }
}

TEST(ParallelForChunks, TakesAnyCallable) {
    const CpuRuntimeContext runtime = unpinned_runtime(2);
    std::atomic<std::size_t> sum{0};
    const std::function<void(std::size_t, std::size_t)> function =
        [&](std::size_t begin, std::size_t end) { sum += end - begin; };
    runtime.parallel_for_chunks(0, 10, 1, function);
    runtime.parallel_for_chunks(
        0, 10, 1, [&sum](std::size_t begin, std::size_t end) mutable { sum += end - begin; });
    EXPECT_EQ(sum, 20U);
    static std::atomic<int> plain_calls;
    struct Plain {
        static void call(std::size_t, std::size_t) { ++plain_calls; }
    };
    plain_calls = 0;
    runtime.parallel_for_chunks(0, 2, 1, Plain::call);
    EXPECT_EQ(plain_calls, 2);
}

TEST(ParallelForChunks, ComputesInTheDefaultFloatingPointEnvironment) {
    std::fenv_t before;
    std::fegetenv(&before);
    for (const int threads : {1, 2}) {
        const CpuRuntimeContext runtime = unpinned_runtime(static_cast<std::size_t>(threads));
        std::fesetround(FE_UPWARD);
        std::atomic<int> rounding_to_nearest{0};
        for (int loop = 0; loop < 3; ++loop) {
            runtime.parallel_for_chunks(0, 2, 1, [&](std::size_t, std::size_t) {
                const auto count = [&](std::size_t, std::size_t) {
                    rounding_to_nearest += std::fegetround() == FE_TONEAREST;
                };
                count(0, 1);
                std::fesetround(FE_DOWNWARD); // reaches neither an inner loop nor the next one
                runtime.parallel_for_chunks(0, 2, 1, count);
                std::fesetround(FE_DOWNWARD);
            });
        }
        EXPECT_EQ(std::fegetround(), FE_UPWARD);
        std::fesetenv(&before);
        EXPECT_EQ(rounding_to_nearest, 2 * 3 * threads);
    }
}

// Bodies that end by a stop alone, which comes by the token or by what is called on the caller's
// thread while it waits.
TEST(ParallelForChunks, EndsWithTheRunThatItIsPartOf) {
    const CpuRuntimeContext runtime = unpinned_runtime(3);
    const auto caller = std::this_thread::get_id();
    for (const bool by_token : {true, false}) {
        std::stop_source source;
        const std::stop_token token = source.get_token();
        int asked = 0;
        const std::function<void()> interrupt = [&] {
            EXPECT_EQ(std::this_thread::get_id(), caller);
            if (++asked == 3) {
                throw std::domain_error("interrupted");
            }
        };
        const std::function<void()> none;
        RunStop stop(token, by_token ? none : interrupt, RunStop::Interval(1));
        const RunStop::Scope scope(&stop);
        std::atomic<int> started{0};
        const auto loop = [&] {
            runtime.parallel_for_chunks(0, 3, 1, [&](std::size_t, std::size_t) {
                if (++started == 3 && by_token) {
                    source.request_stop();
                }
                while (true) {
                    stop_point();
                }
            });
        };
        if (by_token) {
            EXPECT_THROW(loop(), OperationStopped);
            EXPECT_THROW(loop(), OperationStopped);
            EXPECT_EQ(started, 3) << "no body starts after the stop";
        } else {
            EXPECT_EQ(message_of<std::domain_error>(loop), "interrupted");
        }
    }
    Calls calls;
    runtime.parallel_for_chunks(0, 3, 1, calls);
    EXPECT_EQ(calls.sorted().size(), 3U);
}

TEST(ForChunks, CutsLongLoopsIntoPiecesThatCoverEachIndexOnce) {
    const std::uint64_t huge = std::numeric_limits<std::uint64_t>::max();
    const struct {
        std::uint64_t count, work, least;
        std::size_t pieces;
    } cases[] = {
        {0, 0, 64, 1},
        {1, huge, 64, 1},
        {1000, work_of_piece - 1, 64, 1},
        {1000, huge, 64, 16},
        {128, 4 * work_of_piece, 64, 2},
        {65, huge, 64, 2},
        {10000, huge, 4096, 3},
    };
    for (const auto& [count, work, least, pieces] : cases) {
        Ranges ranges;
        for_chunks(
            count, work,
            [&](std::size_t begin, std::size_t end) { ranges.emplace_back(begin, end); }, least);
        ASSERT_EQ(ranges.size(), pieces) << count << " of work " << work;
        std::uint64_t next = 0;
        for (const auto& [begin, end] : ranges) {
            EXPECT_EQ(begin, next);
            EXPECT_TRUE(end == count || (end - begin) % least == 0);
            next = end;
        }
        EXPECT_EQ(next, count);
    }
}

} // namespace
} // namespace Tessaline::Test
