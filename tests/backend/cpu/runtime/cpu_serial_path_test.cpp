// SPDX-License-Identifier: Apache-2.0
// A loop below the threshold must not allocate or lock. This program replaces the allocator and the
// mutex functions by ones that count.

#include "backend/cpu/cpu_test_support.h"
#include "support/allocation_counter.h"

#include <dlfcn.h>
#include <pthread.h>

namespace {

thread_local int locks = 0;

using MutexFunction = int (*)(pthread_mutex_t*);

MutexFunction next_function(const char* name) {
    return reinterpret_cast<MutexFunction>(dlsym(RTLD_NEXT, name));
}

} // namespace

extern "C" int pthread_mutex_lock(pthread_mutex_t* mutex) noexcept {
    static const MutexFunction real = next_function("pthread_mutex_lock");
    ++locks;
    return real(mutex);
}

extern "C" int pthread_mutex_trylock(pthread_mutex_t* mutex) noexcept {
    static const MutexFunction real = next_function("pthread_mutex_trylock");
    ++locks;
    return real(mutex);
}

namespace Tessaline::Test {
namespace {

TEST(SerialPath, NeitherAllocatesNorLocks) {
    for (const auto policy : {CpuPinningPolicy::disabled, CpuPinningPolicy::automatic}) {
        CpuRuntimeOptions options;
        options.thread_count = 2;
        options.pinning_policy = policy;
        const CpuRuntimeContext runtime(options, one_node(3), BackendKind::cpu_simd);
        std::size_t sum = 0;
        std::array<std::size_t, 8> large_capture{1, 2, 3, 4, 5, 6, 7, 8};
        const auto body = [&sum, large_capture](std::size_t begin, std::size_t end) {
            sum += large_capture[begin] + end;
        };
        runtime.parallel_for_chunks(0, 8, 1, body); // what is asked once per process
        const std::uint64_t before = Testing::allocation_count();
        locks = 0;
        runtime.parallel_for_chunks(0, 8, 32767, body);
        EXPECT_EQ(Testing::allocation_count(), before);
        EXPECT_EQ(locks, 0);
        EXPECT_EQ(sum, 18U);

        runtime.parallel_for_chunks(0, 8, 32768, [](std::size_t, std::size_t) {});
        EXPECT_GT(Testing::allocation_count(), before) << "the counter counts";
        EXPECT_GT(locks, 0) << "the counter counts";
    }
}

} // namespace
} // namespace Tessaline::Test
