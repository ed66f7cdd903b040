// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_runtime_context.h"

#include "backend/cpu/runtime/cpu_spinning.h"
#include "backend/cpu/runtime/cpu_worker_pool.h"
#include "backend/cpu/runtime/run_stop.h"
#include "backend/cpu/runtime/stop_point.h"
#include "execution/default_floating_environment.h"

#include <algorithm>
#include <condition_variable>
#include <cstdint>
#include <exception>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

// How many parallel bodies this thread is inside of.
thread_local std::uint32_t parallel_depth = 0;

struct ParallelDepthScope {
    ParallelDepthScope() { ++parallel_depth; }
    ~ParallelDepthScope() { --parallel_depth; }
    ParallelDepthScope(const ParallelDepthScope&) = delete;
    ParallelDepthScope& operator=(const ParallelDepthScope&) = delete;
};

// What the jobs of one loop and its caller share. Jobs hold it, since the last one still signals
// when the caller may already have gone.
class ParallelGroup {
  public:
    ParallelGroup(std::size_t jobs, CpuChunkBody body) : remaining_(jobs), body_(body) {}

    void run(std::size_t begin, std::size_t end) noexcept {
        std::exception_ptr error;
        try {
            const ParallelDepthScope depth;
            const RunStop::Scope of_run(stop_);
            stop_point();
            body_(begin, end);
        } catch (...) {
            error = std::current_exception();
        }
        if (generation_ != process_generation()) {
            leave_forked_child(error);
            return;
        }
        if (error) {
            store_error(std::move(error));
        }
        if (remaining_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            const std::lock_guard lock(mutex_);
            finished_.notify_one();
        }
    }

    // Keeps the first error only.
    void store_error(std::exception_ptr error) {
        const std::lock_guard lock(error_mutex_);
        if (!error_) {
            error_ = std::move(error);
        }
    }

    // Stands in for jobs that will never run.
    void drop_jobs(std::size_t jobs) { remaining_.fetch_sub(jobs, std::memory_order_acq_rel); }

    // Waits for every job. The error of the loop then belongs to the caller alone.
    std::exception_ptr wait(bool polls) {
        const auto done = [this] { return remaining_.load(std::memory_order_acquire) == 0; };
        if (polls && spin_until(done)) {
            return take_error();
        }
        std::unique_lock lock(mutex_);
        while (stop_ != nullptr && stop_->asks_caller() &&
               !finished_.wait_for(lock, stop_->interval(), done)) {
            lock.unlock();
            const std::exception_ptr interruption = interruption_of_caller();
            if (generation_ != process_generation()) {
                return interruption ? interruption : loss_of_workers();
            }
            lock.lock();
            if (interruption) {
                finished_.wait(lock, done);
                return interruption;
            }
        }
        finished_.wait(lock, done);
        lock.unlock();
        return take_error();
    }

  private:
    // The body forked, and nobody waits for it in the child, where the mutexes may be held for
    // ever.
    static void leave_forked_child(const std::exception_ptr& error) {
        if (error) {
            std::rethrow_exception(error); // ends the process, as any error that nobody catches
        }
    }

    std::exception_ptr take_error() {
        const std::lock_guard lock(error_mutex_);
        return std::exchange(error_, nullptr);
    }

    // What ends the run by the caller's wish, of which the workers learn; null if nothing does.
    std::exception_ptr interruption_of_caller() {
        try {
            stop_->check();
        } catch (...) {
            stop_->stop();
            return std::current_exception();
        }
        return nullptr;
    }

    // The interrupt function forked: the workers go on in the parent alone.
    static std::exception_ptr loss_of_workers() {
        return std::make_exception_ptr(std::runtime_error(
            "CpuRuntimeContext::parallel_for - the process was forked from within the loop"));
    }

    RunStop* const stop_ = RunStop::current();
    const std::uint32_t generation_ = process_generation();
    std::atomic<std::size_t> remaining_;
    const CpuChunkBody body_;
    std::mutex mutex_;
    std::condition_variable finished_;
    std::mutex error_mutex_;
    std::exception_ptr error_;
};

// floor(i * count / chunks) without the product, which might not fit.
std::size_t chunk_start(std::size_t i, std::size_t count, std::size_t chunks) {
    return i * (count / chunks) + i * (count % chunks) / chunks;
}

} // namespace

void CpuRuntimeContext::parallel_for_chunks(
    std::size_t first, std::size_t last, std::size_t work,
    const std::function<void(std::size_t, std::size_t)>& body) const {
    run_chunks(first, last, work, CpuChunkBody(body));
}

void CpuRuntimeContext::run_chunks(std::size_t first, std::size_t last, std::size_t work,
                                   CpuChunkBody body) const {
    if (first >= last) {
        return;
    }
    stop_point();
    const std::size_t count = last - first;
    const bool serial =
        options_.thread_count < 2 || count == 1 || work < options_.min_parallel_work;
    if (parallel_depth > 0) {
        DefaultFloatingEnvironment::restore_default(); // a worker has no modes to keep
        body(first, last);
    } else if (!serial) {
        run_on_workers(first, count, body);
    } else if (DefaultFloatingEnvironment::restored_within_scope() ||
               DefaultFloatingEnvironment::is_set()) [[likely]] {
        run_here(first, last, body);
    } else {
        const DefaultFloatingEnvironment environment;
        run_here(first, last, body);
    }
}

void CpuRuntimeContext::run_here(std::size_t first, std::size_t last, CpuChunkBody body) const {
    if (pins_threads()) {
        const CurrentThreadAffinityScope affinity(*this);
        body(first, last);
    } else {
        body(first, last);
    }
}

void CpuRuntimeContext::run_on_workers(std::size_t first, std::size_t count,
                                       CpuChunkBody body) const {
    const std::size_t chunks = std::min(count, options_.thread_count);
    CpuWorkerPoolDetail::CpuWorkerPool& pool = *parallel_impl().pool;
    const auto group = std::make_shared<ParallelGroup>(chunks, body);
    for (std::size_t i = 0; i < chunks; ++i) {
        const std::size_t begin = first + chunk_start(i, count, chunks);
        const std::size_t end = first + chunk_start(i + 1, count, chunks);
        try {
            pool.submit([group, begin, end] { group->run(begin, end); });
        } catch (...) {
            group->store_error(std::current_exception());
            group->drop_jobs(chunks - i);
            break;
        }
    }
    if (const std::exception_ptr error = group->wait(pool.polls())) {
        std::rethrow_exception(error);
    }
}

} // namespace Tessaline
