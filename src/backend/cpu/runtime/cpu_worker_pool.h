// SPDX-License-Identifier: Apache-2.0
#pragma once

// The threads behind parallel loops. Pools are shared by contexts of equal configuration, so that
// several contexts do not multiply threads.

#include "backend/cpu/runtime/cpu_worker_budget.h"
#include "tessaline/backend/cpu/cpu_affinity.h"
#include "tessaline/backend/cpu/per_process.h"

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace Tessaline::CpuWorkerPoolDetail {

/// Where one worker runs.
struct CpuWorkerBinding {
    std::size_t logical_cpu = 0;
    int numa_node = -1; ///< the node of `logical_cpu`, -1 if unknown
    bool pin = false;   ///< false leaves the thread to the kernel

    friend bool operator==(const CpuWorkerBinding&, const CpuWorkerBinding&) = default;
};

struct CpuWorkerPoolConfig {
    std::size_t worker_count = 0;
    std::vector<CpuWorkerBinding> bindings;  ///< by worker; workers beyond the end are unbound
    std::shared_ptr<CpuWorkerBudget> budget; ///< may be null
    bool strict_pinning = false;
};

/// A fixed number of threads and one queue, first in first out. A job runs with the default
/// floating-point environment and one unit of the budget.
///
/// A forked child may neither use nor end its parent's pool; shared_cpu_worker_pool sees to that.
/// In a child that a job forked, the worker ends with that job, and with it the process.
class CpuWorkerPool {
  public:
    /// Returns when every worker has started and bound itself. Raises std::runtime_error under
    /// strict pinning when a worker could not be bound.
    explicit CpuWorkerPool(const CpuWorkerPoolConfig& config);
    CpuWorkerPool(const CpuWorkerPool&) = delete;
    CpuWorkerPool& operator=(const CpuWorkerPool&) = delete;
    ~CpuWorkerPool();

    /// Queues a job, which must not throw. Raises std::runtime_error once the pool is stopping.
    void submit(std::function<void()> job);

    /// Whether there are processors enough for the workers and their callers to poll a while
    /// instead of sleeping at once.
    bool polls() const { return polls_; }

    /// Whether this process started the workers, and not one that it was forked from.
    bool is_of_this_process() const { return generation_ == process_generation(); }

    /// Refuses further jobs, runs those queued and joins the workers. Not from a worker.
    void stop_workers();

  private:
    void start_workers(const CpuWorkerPoolConfig& config);
    void worker_entry(const CpuWorkerBinding& binding);
    void worker_loop();
    /// Waits; empty when the pool stops and the queue is done.
    std::function<void()> next_job();
    void poll_for_job(std::unique_lock<std::mutex>& lock);

    std::mutex startup_mutex_;
    std::condition_variable worker_started_;
    std::size_t pending_startups_;
    bool pin_failed_ = false;
    const bool strict_pinning_;
    const std::uint32_t generation_ = process_generation();
    const std::shared_ptr<CpuWorkerBudget> budget_;
    /// What the creating thread has when not pinned, and unbound workers get; empty if it was not.
    const std::optional<CpuAffinityMask> pinned_creator_mask_;
    const bool polls_; ///< workers poll before they sleep: a processor each and one to spare

    std::mutex queue_mutex_;
    std::condition_variable queue_changed_;
    std::deque<std::function<void()>> queue_;
    std::size_t polling_ = 0; ///< workers that poll at present
    bool stopping_ = false;
    std::vector<std::thread> threads_;
    /// The queue's length, to poll without the mutex; on a cache line of its own.
    alignas(64) std::atomic<std::size_t> queued_{0};
};

/// The process's one pool of this configuration, the budget compared by identity; it lives while
/// somebody holds it, and in a forked child of the process for ever. Null below 2 workers. Raises
/// what the pool's constructor raises. Thread safe.
std::shared_ptr<CpuWorkerPool> shared_cpu_worker_pool(const CpuWorkerPoolConfig& config);

} // namespace Tessaline::CpuWorkerPoolDetail
