// SPDX-License-Identifier: Apache-2.0
#pragma once

// How many jobs of the CPU workers run at once. A context and its NUMA-local runtimes have pools of
// their own but one budget, so that together they do not oversubscribe the machine.

#include "tessaline/backend/cpu/per_process.h"

#include <condition_variable>
#include <cstddef>
#include <memory>
#include <mutex>

namespace Tessaline::CpuWorkerPoolDetail {

/// A counting semaphore. A limit of 0 stands for no limit. In a forked child nothing is active yet.
class CpuWorkerBudget {
  public:
    explicit CpuWorkerBudget(std::size_t limit) : limit_(limit) {}
    CpuWorkerBudget(const CpuWorkerBudget&) = delete;
    CpuWorkerBudget& operator=(const CpuWorkerBudget&) = delete;

    /// Waits until fewer than `limit` are active, then counts one more.
    void acquire();
    /// Counts one less, never below 0.
    void release();

    std::size_t limit() const { return limit_; }

  private:
    struct Count {
        std::mutex mutex;
        std::condition_variable released;
        std::size_t active = 0;
    };

    const std::size_t limit_;
    PerProcess<Count> count_;
};

/// One unit of a budget, held from construction to destruction. A null budget holds nothing.
class CpuWorkerBudgetScope {
  public:
    explicit CpuWorkerBudgetScope(std::shared_ptr<CpuWorkerBudget> budget);
    CpuWorkerBudgetScope(const CpuWorkerBudgetScope&) = delete;
    CpuWorkerBudgetScope& operator=(const CpuWorkerBudgetScope&) = delete;
    ~CpuWorkerBudgetScope();

  private:
    std::shared_ptr<CpuWorkerBudget> budget_;
};

/// The process's one budget of this limit; it lives while somebody holds it. Thread safe.
std::shared_ptr<CpuWorkerBudget> shared_cpu_worker_budget(std::size_t limit);

} // namespace Tessaline::CpuWorkerPoolDetail
