// SPDX-License-Identifier: Apache-2.0
// The affinity functions of the C library are replaced in this program, so that it can count the
// calls and stand for kernels that refuse or want wider sets.

#include "backend/cpu/cpu_test_support.h"

#include <cerrno>
#include <gmock/gmock.h>
#include <pthread.h>
#include <sched.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace {

std::atomic<int> reads{0};
std::atomic<int> writes{0};
std::atomic<int> configured_counts{0};
// The smallest set that the kernel takes.
std::atomic<std::size_t> least_bytes{0};
std::atomic<std::size_t> last_written_bytes{0};

} // namespace

extern "C" int pthread_getaffinity_np(pthread_t, std::size_t bytes, cpu_set_t* set) noexcept {
    ++reads;
    if (bytes < least_bytes) {
        return EINVAL;
    }
    return sched_getaffinity(0, bytes, set) == 0 ? 0 : errno;
}

extern "C" int pthread_setaffinity_np(pthread_t, std::size_t bytes, const cpu_set_t* set) noexcept {
    ++writes;
    last_written_bytes = bytes;
    return sched_setaffinity(0, bytes, set) == 0 ? 0 : errno;
}

extern "C" long sysconf(int name) noexcept {
    if (name == _SC_NPROCESSORS_CONF) {
        ++configured_counts;
        return 1024;
    }
    return name == _SC_PAGESIZE ? 4096 : -1;
}

namespace Tessaline::Test {
namespace {

using Cpus = std::vector<std::size_t>;
using Scope = CpuRuntimeContext::CurrentThreadAffinityScope;

class CpuAffinity : public testing::Test {
  protected:
    void SetUp() override { forget_calls(); }
    // Another test of this program must not inherit a broken kernel or a pinned thread.
    void TearDown() override {
        least_bytes = 0;
        EXPECT_EQ(current_thread_cpus(), all_);
    }

    static void forget_calls() {
        reads = 0;
        writes = 0;
        configured_counts = 0;
    }

    static CpuRuntimeContext runtime(CpuPinningPolicy policy, Cpus cpus) {
        CpuRuntimeOptions options;
        options.pinning_policy = policy;
        options.logical_cpus = cpus;
        return {options, CpuTopology({{0, cpus}}), BackendKind::cpu_simd};
    }

    const Cpus all_ = current_thread_cpus();
    const std::size_t last_ = all_.back();
};

TEST_F(CpuAffinity, BindsOrSaysThatTheKernelRefused) {
    const auto before = CpuAffinityMask::of_current_thread();
    EXPECT_TRUE(bind_current_thread_to_logical_cpu(last_));
    EXPECT_EQ(current_thread_cpus(), Cpus{last_});
    for (const std::size_t cpu : {missing_cpu, std::size_t{5000000}, ~std::size_t{0}}) {
        EXPECT_FALSE(bind_current_thread_to_logical_cpu(cpu)) << cpu;
    }
    EXPECT_EQ(current_thread_cpus(), Cpus{last_});
    EXPECT_TRUE(before->apply_to_current_thread());
}

TEST_F(CpuAffinity, ScopesOfSeveralCpusNest) {
    if (all_.size() < 2) {
        GTEST_SKIP() << "needs two CPUs";
    }
    const CpuRuntimeContext outer = runtime(CpuPinningPolicy::automatic, {last_});
    const CpuRuntimeContext inner = runtime(CpuPinningPolicy::automatic, {all_.front()});
    const Scope first(outer);
    {
        const Scope second(inner);
        EXPECT_EQ(current_thread_cpus(), Cpus{all_.front()});
        {
            const Scope third(outer);
            EXPECT_EQ(current_thread_cpus(), Cpus{last_});
        }
        EXPECT_EQ(current_thread_cpus(), Cpus{all_.front()});
    }
    EXPECT_EQ(current_thread_cpus(), Cpus{last_});
    forget_calls();
    const Scope fourth(outer);
    EXPECT_EQ(reads + writes, 0) << "the first scope counts again";
}

// The fixture checks after every test that the affinity is restored.
TEST_F(CpuAffinity, ScopesAndSerialLoopsRunPinned) {
    const CpuRuntimeContext pinned = runtime(CpuPinningPolicy::strict, {last_});
    const auto body = [&](std::size_t, std::size_t) {
        EXPECT_EQ(current_thread_cpus(), Cpus{last_});
        throw 1;
    };
    EXPECT_THROW(pinned.parallel_for_chunks(0, 9, 1, body), int);
    EXPECT_EQ(current_thread_cpus(), all_);
    const Scope scope(pinned);
    EXPECT_EQ(current_thread_cpus(), Cpus{last_});
}

TEST_F(CpuAffinity, AsksTheKernelForNoMoreThanNeeded) {
    if (all_.size() < 2) {
        GTEST_SKIP() << "needs two CPUs";
    }
    const CpuRuntimeContext pinned = runtime(CpuPinningPolicy::automatic, {last_});
    const CpuRuntimeContext disabled = runtime(CpuPinningPolicy::disabled, {last_});
    const auto empty_loop = [](const CpuRuntimeContext& of) {
        of.parallel_for_chunks(0, 9, 1, [](std::size_t, std::size_t) {});
    };
    empty_loop(disabled);
    EXPECT_EQ(reads + writes, 0) << "pinning is disabled";
    empty_loop(pinned);
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(writes, 2) << "one to pin, one to restore";
    {
        forget_calls();
        const Scope scope(pinned);
        empty_loop(pinned);
        const Scope inner(pinned);
        EXPECT_EQ(reads, 1);
        EXPECT_EQ(writes, 1) << "already pinned inside";
    }
    const auto before = CpuAffinityMask::of_current_thread();
    bind_current_thread_to_logical_cpu(last_);
    forget_calls();
    empty_loop(pinned);
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(writes, 0) << "the mask was the wanted one";
    EXPECT_EQ(configured_counts, 0);
    before->apply_to_current_thread();
}

TEST_F(CpuAffinity, RefusalIsAnErrorUnderStrictPinningOnly) {
    const Cpus cpus{missing_cpu, last_};
    int ran = 0;
    const auto body = [&](std::size_t, std::size_t) { ++ran; };
    const CpuRuntimeContext strict = runtime(CpuPinningPolicy::strict, cpus);
    const std::string message = "CpuRuntimeContext - failed to pin serial CPU execution";
    EXPECT_EQ(message_of<std::runtime_error>([&] { Scope scope(strict); }), message);
    EXPECT_EQ(message_of<std::runtime_error>([&] { strict.parallel_for_chunks(0, 9, 1, body); }),
              message);
    EXPECT_EQ(ran, 0);

    const CpuRuntimeContext automatic = runtime(CpuPinningPolicy::automatic, cpus);
    const Scope scope(automatic);
    automatic.parallel_for_chunks(0, 9, 1, body);
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(current_thread_cpus(), all_);
}

TEST_F(CpuAffinity, UnreadableMaskIsAnErrorUnderStrictPinningOnly) {
    least_bytes = ~std::size_t{0};
    const CpuRuntimeContext strict = runtime(CpuPinningPolicy::strict, {last_});
    EXPECT_EQ(message_of<std::runtime_error>([&] { Scope scope(strict); }),
              "CpuRuntimeContext - failed to capture serial thread affinity");
    int ran = 0;
    runtime(CpuPinningPolicy::automatic, {last_})
        .parallel_for_chunks(0, 9, 1, [&](std::size_t, std::size_t) { ++ran; });
    EXPECT_EQ(ran, 1);
    EXPECT_EQ(writes, 0);
    least_bytes = 0;
}

TEST_F(CpuAffinity, GrowsTheSetUntilTheKernelTakesIt) {
    least_bytes = 512; // as on a machine configured for 4096 CPUs
    const auto mask = CpuAffinityMask::of_current_thread();
    EXPECT_EQ(mask->logical_cpus(), all_);
    EXPECT_TRUE(mask->apply_to_current_thread());
    EXPECT_EQ(last_written_bytes, 512U);
}

TEST_F(CpuAffinity, WorkersThatCannotBePinnedDoNotInheritTheCallersPin) {
    CpuRuntimeOptions options;
    options.min_parallel_work = 0;
    const CpuRuntimeContext automatic(
        options, CpuTopology({{0, {last_, missing_cpu, missing_cpu + 1}}}), BackendKind::cpu_simd);
    std::mutex mutex;
    std::vector<Cpus> masks;
    {
        const Scope scope(automatic);
        automatic.parallel_for_chunks(0, 2, 1, [&](std::size_t, std::size_t) {
            const std::lock_guard lock(mutex);
            masks.push_back(current_thread_cpus());
        });
    }
    EXPECT_EQ(masks, (std::vector<Cpus>{all_, all_}));

    options.pinning_policy = CpuPinningPolicy::strict;
    const CpuRuntimeContext strict(
        options, CpuTopology({{0, {last_, missing_cpu, missing_cpu + 1}}}), BackendKind::cpu_simd);
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(message_of<std::runtime_error>([&] {
                      strict.parallel_for_chunks(0, 2, 1, [](std::size_t, std::size_t) {});
                  }),
                  "CpuWorkerPool - failed to pin one or more CPU worker threads");
    }
}

} // namespace
} // namespace Tessaline::Test
