// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/runtime/cpu_worker_budget.h"

#include "backend/cpu/runtime/cpu_spinning.h"

#include <utility>

namespace Tessaline::CpuWorkerPoolDetail {

void CpuWorkerBudget::acquire() {
    if (limit_ == 0) {
        return;
    }
    Count& count = count_.get();
    std::unique_lock lock = lock_briefly_held(count.mutex);
    count.released.wait(lock, [&] { return count.active < limit_; });
    ++count.active;
}

void CpuWorkerBudget::release() {
    if (limit_ == 0) {
        return;
    }
    Count& count = count_.get();
    {
        const std::unique_lock lock = lock_briefly_held(count.mutex);
        if (count.active > 0) {
            --count.active;
        }
    }
    count.released.notify_one();
}

CpuWorkerBudgetScope::CpuWorkerBudgetScope(std::shared_ptr<CpuWorkerBudget> budget)
    : budget_(std::move(budget)) {
    if (budget_) {
        budget_->acquire();
    }
}

CpuWorkerBudgetScope::~CpuWorkerBudgetScope() {
    if (budget_) {
        budget_->release();
    }
}

} // namespace Tessaline::CpuWorkerPoolDetail
