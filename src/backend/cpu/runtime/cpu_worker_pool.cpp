// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/runtime/cpu_worker_pool.h"

#include "backend/cpu/runtime/cpu_spinning.h"
#include "execution/default_floating_environment.h"

#include <stdexcept>
#include <utility>

namespace Tessaline::CpuWorkerPoolDetail {

namespace {

// Of a thread that is pinned for a while, what it has at other times.
std::size_t usable_cpu_count(const std::optional<CpuAffinityMask>& mask_before_pins) {
    const auto mask = mask_before_pins ? mask_before_pins : CpuAffinityMask::of_current_thread();
    return mask ? mask->logical_cpus().size() : 0;
}

} // namespace

// A thread inherits the affinity of the one that starts it, and loops are started by pinned
// threads; pinned_creator_mask_ keeps unbound workers off the caller's one CPU.
CpuWorkerPool::CpuWorkerPool(const CpuWorkerPoolConfig& config)
    : pending_startups_(config.worker_count),
      strict_pinning_(config.strict_pinning),
      budget_(config.budget),
      pinned_creator_mask_(CpuThreadPin::mask_before_pins()),
      polls_(config.worker_count < usable_cpu_count(pinned_creator_mask_)) {
    try {
        start_workers(config);
    } catch (...) {
        stop_workers();
        throw;
    }
}

CpuWorkerPool::~CpuWorkerPool() {
    stop_workers();
}

void CpuWorkerPool::start_workers(const CpuWorkerPoolConfig& config) {
    threads_.reserve(config.worker_count);
    for (std::size_t worker = 0; worker < config.worker_count; ++worker) {
        const CpuWorkerBinding binding =
            worker < config.bindings.size() ? config.bindings[worker] : CpuWorkerBinding{};
        threads_.emplace_back([this, binding] { worker_entry(binding); });
    }
    std::unique_lock lock(startup_mutex_);
    worker_started_.wait(lock, [this] { return pending_startups_ == 0; });
    if (pin_failed_) {
        throw std::runtime_error("CpuWorkerPool - failed to pin one or more CPU worker threads");
    }
}

void CpuWorkerPool::worker_entry(const CpuWorkerBinding& binding) {
    const bool bound = binding.pin && bind_current_thread_to_logical_cpu(binding.logical_cpu);
    const bool failed = binding.pin && !bound && strict_pinning_;
    if (!bound && pinned_creator_mask_) {
        pinned_creator_mask_->apply_to_current_thread();
    }
    {
        const std::lock_guard lock(startup_mutex_);
        --pending_startups_;
        pin_failed_ = pin_failed_ || failed;
    }
    worker_started_.notify_one();
    if (!failed) {
        worker_loop();
    }
}

void CpuWorkerPool::worker_loop() {
    while (is_of_this_process()) {
        const std::function<void()> job = next_job();
        if (!job) {
            return;
        }
        const CpuWorkerBudgetScope budget(budget_);
        // A thread inherits the modes of the one that starts it, and a job may leave others behind.
        DefaultFloatingEnvironment::restore_default();
        job();
    }
}

std::function<void()> CpuWorkerPool::next_job() {
    std::unique_lock lock = lock_briefly_held(queue_mutex_);
    if (polls_ && queue_.empty() && !stopping_) {
        poll_for_job(lock);
    }
    queue_changed_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
    if (queue_.empty()) {
        return nullptr;
    }
    std::function<void()> job = std::move(queue_.front());
    queue_.pop_front();
    queued_.store(queue_.size(), std::memory_order_relaxed);
    return job;
}

// Several workers see one job, and all but one come late: those go on polling.
void CpuWorkerPool::poll_for_job(std::unique_lock<std::mutex>& lock) {
    ++polling_;
    lock.unlock();
    const bool found = spin_until([&] {
        if (queued_.load(std::memory_order_relaxed) == 0 || !lock.try_lock()) {
            return false;
        }
        if (queue_.empty()) {
            lock.unlock();
            return false;
        }
        return true;
    });
    if (!found) {
        lock.lock();
    }
    --polling_;
}

void CpuWorkerPool::submit(std::function<void()> job) {
    bool wake = false;
    {
        const std::unique_lock lock = lock_briefly_held(queue_mutex_);
        if (stopping_) {
            throw std::runtime_error("CpuRuntimeContext::parallel_for - runtime is stopping");
        }
        queue_.push_back(std::move(job));
        queued_.store(queue_.size(), std::memory_order_relaxed);
        // A polling worker looks at the queue once more before it sleeps.
        wake = queue_.size() > polling_;
    }
    if (wake) {
        queue_changed_.notify_one();
    }
}

void CpuWorkerPool::stop_workers() {
    {
        const std::lock_guard lock(queue_mutex_);
        stopping_ = true;
    }
    queue_changed_.notify_all();
    for (std::thread& thread : threads_) {
        if (thread.joinable()) {
            thread.join();
        }
    }
}

} // namespace Tessaline::CpuWorkerPoolDetail
