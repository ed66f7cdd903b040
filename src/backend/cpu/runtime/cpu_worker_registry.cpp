// SPDX-License-Identifier: Apache-2.0
// The process-wide lists behind the shared budgets and pools. Entries are weak: what nobody holds
// any more ends, and its entry is dropped at the next look.

#include "backend/cpu/runtime/cpu_worker_pool.h"

#include <algorithm>

namespace Tessaline::CpuWorkerPoolDetail {

namespace {

struct BudgetEntry {
    std::size_t limit;
    std::weak_ptr<CpuWorkerBudget> shared;
};

// The key is kept beside the pool, so that a pool is locked only to be returned: were it locked to
// be looked at, this might become its last owner and join its workers under the mutex.
struct PoolEntry {
    std::size_t worker_count;
    std::vector<CpuWorkerBinding> bindings;
    const CpuWorkerBudget* budget; // names the budget; alive while the pool is, which holds it
    bool strict_pinning;
    std::weak_ptr<CpuWorkerPool> shared;

    bool serves(const CpuWorkerPoolConfig& config) const {
        return worker_count == config.worker_count && bindings == config.bindings &&
               budget == config.budget.get() && strict_pinning == config.strict_pinning;
    }
};

struct Registry {
    std::mutex mutex;
    std::vector<BudgetEntry> budgets;
    std::vector<PoolEntry> pools;
};

Registry& registry() {
    static PerProcess<Registry> instance;
    return instance.get();
}

// A child has no workers to join, and its parent's may hold the pool's mutexes for ever.
void end_pool_of_this_process(const CpuWorkerPool* pool) {
    if (pool->is_of_this_process()) {
        delete pool;
    }
}

template <typename Entry, typename Matches>
auto find_shared(std::vector<Entry>& entries, const Matches& matches)
    -> decltype(entries.front().shared.lock()) {
    std::erase_if(entries, [](const Entry& entry) { return entry.shared.expired(); });
    for (const Entry& entry : entries) {
        if (matches(entry)) {
            if (auto shared = entry.shared.lock()) {
                return shared;
            }
        }
    }
    return nullptr;
}

} // namespace

std::shared_ptr<CpuWorkerBudget> shared_cpu_worker_budget(std::size_t limit) {
    Registry& lists = registry();
    const std::lock_guard lock(lists.mutex);
    auto budget = find_shared(lists.budgets,
                              [limit](const BudgetEntry& entry) { return entry.limit == limit; });
    if (!budget) {
        budget = std::make_shared<CpuWorkerBudget>(limit);
        lists.budgets.push_back({limit, budget});
    }
    return budget;
}

std::shared_ptr<CpuWorkerPool> shared_cpu_worker_pool(const CpuWorkerPoolConfig& config) {
    if (config.worker_count < 2) {
        return nullptr;
    }
    Registry& lists = registry();
    const std::lock_guard lock(lists.mutex);
    auto pool = find_shared(lists.pools,
                            [&config](const PoolEntry& entry) { return entry.serves(config); });
    if (!pool) {
        pool.reset(new CpuWorkerPool(config), end_pool_of_this_process);
        lists.pools.push_back({config.worker_count, config.bindings, config.budget.get(),
                               config.strict_pinning, pool});
    }
    return pool;
}

} // namespace Tessaline::CpuWorkerPoolDetail
