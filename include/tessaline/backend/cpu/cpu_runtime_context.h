// SPDX-License-Identifier: Apache-2.0
#pragma once

// What a CPU kernel runs against: a resolved choice of logical CPUs, workers that start with the
// first loop that needs them, and the one parallel primitive.

#include "tessaline/backend/cpu/cpu_affinity.h"
#include "tessaline/backend/cpu/cpu_chunk_body.h"
#include "tessaline/backend/cpu/cpu_runtime_options.h"
#include "tessaline/backend/cpu/cpu_topology.h"
#include "tessaline/backend/cpu/per_process.h"
#include "tessaline/execution/backend_context.h"

#include <functional>
#include <memory>
#include <type_traits>
#include <vector>

namespace Tessaline {

namespace CpuWorkerPoolDetail {
class CpuWorkerBudget;
class CpuWorkerPool;
} // namespace CpuWorkerPoolDetail

/// The CPU runtime. The first selected CPU belongs to the thread that calls; workers run on the
/// others. All members are thread safe. A forked child may use the context of its parent: it starts
/// workers of its own with its first loop that needs them.
class TESSALINE_API CpuRuntimeContext : public BackendRuntimeContext {
  public:
    class CurrentThreadAffinityScope;
    struct ParallelImplementation;

    /// Default options on the machine's topology.
    explicit CpuRuntimeContext(BackendKind backend);
    CpuRuntimeContext(CpuRuntimeOptions options, BackendKind backend);
    CpuRuntimeContext(CpuRuntimeOptions options, CpuTopology topology, BackendKind backend);
    /// With the budget of another context; a null budget stands for the shared one of the thread
    /// count. Every constructor raises std::invalid_argument for options that the topology cannot
    /// meet.
    CpuRuntimeContext(CpuRuntimeOptions options, CpuTopology topology, BackendKind backend,
                      std::shared_ptr<CpuWorkerPoolDetail::CpuWorkerBudget> budget);
    ~CpuRuntimeContext() override;
    CpuRuntimeContext(const CpuRuntimeContext&) = delete;
    CpuRuntimeContext& operator=(const CpuRuntimeContext&) = delete;

    BackendKind backend() const override { return backend_; }
    const CpuTopology& topology() const { return topology_; }
    /// As given, but for the thread count, which is the resolved one.
    const CpuRuntimeOptions& options() const { return options_; }
    std::size_t thread_count() const { return options_.thread_count; }
    /// In order of use; never empty.
    const std::vector<std::size_t>& selected_logical_cpus() const { return selected_logical_cpus_; }
    const std::shared_ptr<CpuWorkerPoolDetail::CpuWorkerBudget>& budget() const { return budget_; }

    /// Calls `body(begin, end)` on contiguous ranges that cover [first, last) once, and returns
    /// when all calls have.
    ///
    /// `work` estimates the scalar operations of the whole range. Below the threshold, for a single
    /// index, with fewer than two threads and inside the body of another parallel loop there is one
    /// call, on this thread, without locks or allocations; outside such a body this thread is kept
    /// on the first selected CPU meanwhile, unless pinning is disabled. Otherwise the workers get
    /// min(count, threads) ranges, which depend on nothing but these two numbers, and this thread
    /// waits. Either way a body finds the default floating-point environment. Raises the first
    /// exception that a body threw, and std::runtime_error when strict pinning fails or the workers
    /// are stopping.
    void parallel_for_chunks(std::size_t first, std::size_t last, std::size_t work,
                             const std::function<void(std::size_t, std::size_t)>& body) const;

    /// Takes any callable for a body, which is referred to and neither copied nor allocated.
    template <typename Body>
    requires CpuChunkCallable<std::remove_reference_t<Body>>
    void parallel_for_chunks(std::size_t first, std::size_t last, std::size_t work,
                             Body&& body) const {
        run_chunks(first, last, work, CpuChunkBody(body));
    }

    /// The workers, started at the first call of a process. Raises std::runtime_error when strict
    /// pinning fails; a later call tries again.
    const ParallelImplementation& parallel_impl() const;

    /// The runtime with these options on this topology that shares this context's budget: one for
    /// each distinct request and process, living as long as this context. `node` is part of the
    /// request only; the options say where the runtime runs. Raises what the constructor raises.
    std::shared_ptr<CpuRuntimeContext>
    local_runtime_for_numa_node(int node, CpuRuntimeOptions options, BackendKind backend) const;

  private:
    struct CachedLocalRuntime {
        int numa_node;
        BackendKind backend;
        CpuRuntimeOptions options; ///< as asked for
        std::shared_ptr<CpuRuntimeContext> runtime;
    };
    struct Workers;

    bool pins_threads() const { return options_.pinning_policy != CpuPinningPolicy::disabled; }
    void run_chunks(std::size_t first, std::size_t last, std::size_t work, CpuChunkBody body) const;
    void run_here(std::size_t first, std::size_t last, CpuChunkBody body) const;
    void run_on_workers(std::size_t first, std::size_t count, CpuChunkBody body) const;
    std::unique_ptr<const ParallelImplementation> start_parallel() const;

    BackendKind backend_;
    CpuTopology topology_;
    CpuRuntimeOptions options_;
    std::vector<std::size_t> selected_logical_cpus_;
    std::shared_ptr<CpuWorkerPoolDetail::CpuWorkerBudget> budget_;
    mutable PerProcess<Workers> workers_;
};

/// The workers of a context.
struct CpuRuntimeContext::ParallelImplementation {
    std::shared_ptr<CpuWorkerPoolDetail::CpuWorkerPool> pool; ///< null below 2 threads
};

/// Keeps the calling thread on the first selected CPU of a runtime while it lives, and restores its
/// affinity at the end. Does nothing where pinning is disabled.
class TESSALINE_API CpuRuntimeContext::CurrentThreadAffinityScope {
  public:
    /// Under strict pinning raises std::runtime_error when the affinity can be neither read nor
    /// set; under automatic pinning the thread then stays as it is.
    explicit CurrentThreadAffinityScope(const CpuRuntimeContext& runtime) {
        if (runtime.pins_threads()) {
            pin(runtime);
        }
    }

  private:
    void pin(const CpuRuntimeContext& runtime);

    CpuThreadPin pin_;
};

} // namespace Tessaline
