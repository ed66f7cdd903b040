// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_worker_budget.h"

#include "backend/cpu/cpu_spinning.h"

#include <utility>

namespace Tessaline::CpuWorkerPoolDetail {

void CpuWorkerBudget::acquire() {
    if (limit_ == 0) {
        return;
    }
    std::unique_lock lock = lock_briefly_held(mutex_);
    released_.wait(lock, [this] { return active_ < limit_; });
    ++active_;
}

void CpuWorkerBudget::release() {
    if (limit_ == 0) {
        return;
    }
    {
        const std::unique_lock lock = lock_briefly_held(mutex_);
        if (active_ > 0) {
            --active_;
        }
    }
    released_.notify_one();
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
