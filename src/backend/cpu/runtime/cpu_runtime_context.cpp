// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/cpu_runtime_context.h"

#include "backend/cpu/runtime/cpu_selection.h"
#include "backend/cpu/runtime/cpu_worker_pool.h"

#include <algorithm>
#include <atomic>
#include <mutex>
#include <stdexcept>
#include <utility>

namespace Tessaline {

namespace {

[[noreturn]] void fail_unsupported_pinning() {
    throw std::runtime_error(
        "CpuRuntimeContext - strict CPU worker pinning is unsupported on this platform");
}

} // namespace

struct CpuRuntimeContext::Workers {
    std::mutex mutex; ///< guards the members below; taken before the list of pools
    std::vector<CachedLocalRuntime> local_runtimes;
    std::unique_ptr<const ParallelImplementation> parallel;
    std::atomic<const ParallelImplementation*> ready_parallel{nullptr};
};

CpuRuntimeContext::CpuRuntimeContext(BackendKind backend)
    : CpuRuntimeContext(CpuRuntimeOptions{}, backend) {}

CpuRuntimeContext::CpuRuntimeContext(CpuRuntimeOptions options, BackendKind backend)
    : CpuRuntimeContext(std::move(options), system_cpu_topology(), backend) {}

CpuRuntimeContext::CpuRuntimeContext(CpuRuntimeOptions options, CpuTopology topology,
                                     BackendKind backend)
    : CpuRuntimeContext(std::move(options), std::move(topology), backend, nullptr) {}

CpuRuntimeContext::CpuRuntimeContext(CpuRuntimeOptions options, CpuTopology topology,
                                     BackendKind backend,
                                     std::shared_ptr<CpuWorkerPoolDetail::CpuWorkerBudget> budget)
    : backend_(backend),
      topology_(std::move(topology)),
      options_(std::move(options)),
      selected_logical_cpus_(select_logical_cpus(options_, topology_)),
      budget_(std::move(budget)) {
    options_.thread_count =
        resolve_thread_count(options_.thread_count, selected_logical_cpus_.size());
    if (!budget_) {
        budget_ = CpuWorkerPoolDetail::shared_cpu_worker_budget(options_.thread_count);
    }
    if (options_.pinning_policy == CpuPinningPolicy::strict && options_.thread_count >= 2 &&
        !cpu_thread_pinning_supported()) {
        fail_unsupported_pinning();
    }
}

CpuRuntimeContext::~CpuRuntimeContext() = default;

const CpuRuntimeContext::ParallelImplementation& CpuRuntimeContext::parallel_impl() const {
    Workers& workers = workers_.get();
    if (const auto* ready = workers.ready_parallel.load(std::memory_order_acquire)) {
        return *ready;
    }
    const std::lock_guard lock(workers.mutex);
    if (!workers.parallel) {
        workers.parallel = start_parallel();
        workers.ready_parallel.store(workers.parallel.get(), std::memory_order_release);
    }
    return *workers.parallel;
}

std::unique_ptr<const CpuRuntimeContext::ParallelImplementation>
CpuRuntimeContext::start_parallel() const {
    CpuWorkerPoolDetail::CpuWorkerPoolConfig config;
    config.worker_count = options_.thread_count;
    config.budget = budget_;
    if (options_.thread_count >= 2 && pins_threads()) {
        const bool strict = options_.pinning_policy == CpuPinningPolicy::strict;
        if (cpu_thread_pinning_supported()) {
            config.strict_pinning = strict;
            for (std::size_t worker = 0; worker < config.worker_count; ++worker) {
                const std::size_t cpu = worker_logical_cpu(selected_logical_cpus_, worker);
                config.bindings.push_back({cpu, topology_.numa_node_for_logical_cpu(cpu), true});
            }
        } else if (strict) {
            fail_unsupported_pinning();
        }
    }
    return std::make_unique<const ParallelImplementation>(
        ParallelImplementation{CpuWorkerPoolDetail::shared_cpu_worker_pool(config)});
}

std::shared_ptr<CpuRuntimeContext>
CpuRuntimeContext::local_runtime_for_numa_node(int node, CpuRuntimeOptions options,
                                               BackendKind backend) const {
    Workers& workers = workers_.get();
    const std::lock_guard lock(workers.mutex);
    auto& known = workers.local_runtimes;
    const auto found = std::ranges::find_if(known, [&](const CachedLocalRuntime& cached) {
        return cached.numa_node == node && cached.backend == backend && cached.options == options;
    });
    if (found != known.end()) {
        return found->runtime;
    }
    auto runtime = std::make_shared<CpuRuntimeContext>(options, topology_, backend, budget_);
    known.push_back({node, backend, std::move(options), runtime});
    return runtime;
}

void CpuRuntimeContext::CurrentThreadAffinityScope::pin(const CpuRuntimeContext& runtime) {
    const CpuThreadPin::Outcome outcome = pin_.pin(runtime.selected_logical_cpus().front());
    if (runtime.options().pinning_policy != CpuPinningPolicy::strict) {
        return;
    }
    switch (outcome) {
    case CpuThreadPin::Outcome::pinned:
        return;
    case CpuThreadPin::Outcome::mask_unreadable:
        throw std::runtime_error("CpuRuntimeContext - failed to capture serial thread affinity");
    case CpuThreadPin::Outcome::refused:
        throw std::runtime_error("CpuRuntimeContext - failed to pin serial CPU execution");
    }
}

} // namespace Tessaline
