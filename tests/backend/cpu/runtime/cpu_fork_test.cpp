// SPDX-License-Identifier: Apache-2.0
// Children of a process with live workers. Each has a time limit, since what is wrong here hangs.

#include "backend/cpu/cpu_test_support.h"
#include "backend/cpu/runtime/cpu_worker_pool.h"
#include "backend/cpu/runtime/run_stop.h"

#include <algorithm>
#include <csignal>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace Tessaline::Test {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t threads = 3;
constexpr int success = 7; // unlike what a process ends with by accident

// What a child ended with, or -1 when a signal ended it, that of the time limit included.
int exit_code_of(pid_t child) {
    const auto deadline = std::chrono::steady_clock::now() + 20s;
    int status = 0;
    while (waitpid(child, &status, WNOHANG) == 0) {
        if (std::chrono::steady_clock::now() > deadline) {
            kill(child, SIGKILL);
        }
        std::this_thread::sleep_for(1ms);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// Forks and leaves the child by exit(), so that its destructors of static objects run as well.
template <typename Function>
int exit_code_of_forked(const Function& function) {
    const pid_t child = fork();
    if (child == 0) {
        std::exit(function() ? success : 1);
    }
    return exit_code_of(child);
}

bool loop_is_complete(const CpuRuntimeContext& runtime) {
    std::vector<int> seen(100, 0);
    std::atomic<int> away{0};
    const auto caller = std::this_thread::get_id();
    runtime.parallel_for_chunks(0, seen.size(), 1, [&](std::size_t begin, std::size_t end) {
        away += std::this_thread::get_id() != caller ? 1 : 0;
        std::for_each(seen.begin() + static_cast<std::ptrdiff_t>(begin),
                      seen.begin() + static_cast<std::ptrdiff_t>(end), [](int& n) { ++n; });
    });
    return std::ranges::count(seen, 1) == 100 && away == threads;
}

std::shared_ptr<CpuRuntimeContext> local_of(const CpuRuntimeContext& runtime) {
    CpuRuntimeOptions options = unpinned_options(threads);
    options.numa_nodes = {0};
    return runtime.local_runtime_for_numa_node(0, options, BackendKind::cpu_simd);
}

// Contexts that outlive main(), whose workers have run.
std::unique_ptr<CpuRuntimeContext> parent;
std::shared_ptr<CpuRuntimeContext> parents_local;

class Fork : public testing::Test {
  public:
    Fork() {
        parent = std::make_unique<CpuRuntimeContext>(unpinned_options(threads),
                                                     one_node(threads + 1), BackendKind::cpu_simd);
        parents_local = local_of(*parent);
        EXPECT_TRUE(loop_is_complete(*parent) && loop_is_complete(*parents_local));
    }
    ~Fork() override { EXPECT_TRUE(loop_is_complete(*parent)) << "the parent's loops go on"; }
};

const struct {
    const char* name;
    bool (*child)();
} cases[] = {
    {"only exits", [] { return true; }},
    {"loops", [] { return loop_is_complete(*parent); }},
    {"loops on a new context", [] { return loop_is_complete(unpinned_runtime(threads)); }},
    {"loops on a local context", [] { return loop_is_complete(*local_of(*parent)); }},
    {"loops on a local context of its parent", [] { return loop_is_complete(*parents_local); }},
    {"ends its parent's context unused", [] { return parent.reset(), true; }},
    {"ends its parent's context, then loops",
     [] {
         parent.reset();
         return loop_is_complete(unpinned_runtime(threads));
     }},
    {"loops and ends what it used",
     [] { return loop_is_complete(*parent) && (parent.reset(), true); }},
    {"loops beside a thread of its own",
     [] {
         bool other = false;
         std::thread thread([&] { other = loop_is_complete(*parent); });
         const bool own = loop_is_complete(*parent);
         thread.join();
         return own && other && parent->parallel_impl().pool == parent->parallel_impl().pool;
     }},
    {"forks before and after its first loop",
     [] {
         const auto loops = [] { return loop_is_complete(*parent); };
         return exit_code_of_forked(loops) == success && loops() &&
                exit_code_of_forked(loops) == success && loops();
     }},
};

TEST_F(Fork, ChildrenStartWorkersOfTheirOwn) {
    for (const auto& [name, child] : cases) {
        EXPECT_EQ(exit_code_of_forked(child), success) << "a child that " << name;
    }
}

// Threads hold every mutex of the runtime at some fork, and wait for workers and for the budget.
TEST_F(Fork, FindsNoMutexHeldByAThreadThatItLacks) {
    std::atomic<bool> done{false};
    std::vector<std::thread> busy;
    for (int thread = 0; thread < 3; ++thread) {
        busy.emplace_back([&] {
            while (!done) {
                parent->parallel_for_chunks(0, 3, 1, [](std::size_t, std::size_t) {});
                local_of(*parent)->parallel_for_chunks(0, 3, 1, [](std::size_t, std::size_t) {});
                unpinned_runtime(2).parallel_for_chunks(0, 3, 1, [](std::size_t, std::size_t) {});
            }
        });
    }
    for (int round = 0; round < 60; ++round) {
        const auto& [name, child] = cases[static_cast<std::size_t>(round) % std::size(cases)];
        EXPECT_EQ(exit_code_of_forked(child), success) << "a child that " << name;
    }
    done = true;
    for (std::thread& thread : busy) {
        thread.join();
    }
}

// The child is a copy of the worker, and neither its pool nor its caller exist.
TEST_F(Fork, ChildOfALoopsBodyEndsWithTheBody) {
    for (const bool raises : {false, true}) {
        std::atomic<pid_t> child{-1};
        parent->parallel_for_chunks(0, threads, 1, [&](std::size_t begin, std::size_t) {
            if (begin != 0) {
                return;
            }
            child = fork();
            if (child == 0) {
                std::fclose(stderr);
                parent->parallel_for_chunks(0, 9, 1, [](std::size_t, std::size_t) {});
                if (raises) {
                    throw std::runtime_error("nobody is there to catch it");
                }
            }
        });
        EXPECT_EQ(exit_code_of(child), raises ? -1 : 0);
    }
}

// The function that a run asks on its thread forks while workers run a loop: the child, which has
// lost them, gets an error and not a hang.
TEST_F(Fork, InTheMiddleOfALoopFailsInTheChildAlone) {
    std::atomic<pid_t> child{-1};
    const std::stop_token token;
    const std::function<void()> interrupt = [&] {
        if (child == -1) {
            child = fork();
        }
    };
    RunStop stop(token, interrupt, RunStop::Interval(1));
    bool failed = false;
    try {
        const RunStop::Scope scope(&stop);
        parent->parallel_for_chunks(0, threads, 1, [&](std::size_t, std::size_t) {
            while (child == -1) {
                std::this_thread::yield();
            }
        });
    } catch (const std::runtime_error&) {
        failed = true;
    }
    if (child == 0) {
        std::exit(failed && loop_is_complete(*parent) ? success : 1);
    }
    EXPECT_FALSE(failed);
    EXPECT_EQ(exit_code_of(child), success);
}

} // namespace
} // namespace Tessaline::Test
