// SPDX-License-Identifier: Apache-2.0
// What the CPU runtime adds to a kernel: a serial loop against the bare call, pinning, the
// hand-over of an empty loop to the workers, and the reading of the machine.

#include "tessaline/backend/cpu/cpu_runtime_context.h"

#include <algorithm>
#include <benchmark/benchmark.h>
#include <chrono>
#include <numeric>

namespace {

using namespace Tessaline;

constexpr std::size_t below_threshold = default_cpu_min_parallel_work() - 1;
constexpr std::size_t above_threshold = default_cpu_min_parallel_work();

// A machine of `cpus` CPUs: the real one where it has as many, else made up.
CpuTopology topology_of(std::size_t cpus) {
    if (system_cpu_topology().logical_cpu_count() >= cpus) {
        return system_cpu_topology();
    }
    std::vector<std::size_t> numbers(cpus);
    std::iota(numbers.begin(), numbers.end(), std::size_t{0});
    return CpuTopology({{0, numbers}});
}

CpuRuntimeContext runtime_of(std::size_t threads, CpuPinningPolicy pinning) {
    CpuRuntimeOptions options;
    options.thread_count = threads;
    options.pinning_policy = pinning;
    return {options, topology_of(threads + 1), BackendKind::cpu_simd};
}

void touch(std::size_t begin, std::size_t end) {
    benchmark::DoNotOptimize(begin);
    benchmark::DoNotOptimize(end);
}

const std::function<void(std::size_t, std::size_t)> body = touch;

void bare_call(benchmark::State& state) {
    for (auto _ : state) {
        body(0, 64);
    }
}
BENCHMARK(bare_call);

void serial_loop(benchmark::State& state) {
    const CpuRuntimeContext runtime = runtime_of(2, static_cast<CpuPinningPolicy>(state.range(0)));
    for (auto _ : state) {
        runtime.parallel_for_chunks(0, 64, below_threshold, body);
    }
}
BENCHMARK(serial_loop)->ArgName("pinning")->Arg(0)->Arg(1);

void serial_loop_inside_affinity_scope(benchmark::State& state) {
    const CpuRuntimeContext runtime = runtime_of(2, CpuPinningPolicy::automatic);
    const CpuRuntimeContext::CurrentThreadAffinityScope scope(runtime);
    for (auto _ : state) {
        runtime.parallel_for_chunks(0, 64, below_threshold, body);
    }
}
BENCHMARK(serial_loop_inside_affinity_scope);

// Each loop is timed by itself, since the mean hides how the usual loop fares.
void empty_parallel_loop(benchmark::State& state) {
    const auto threads = static_cast<std::size_t>(state.range(0));
    const CpuRuntimeContext runtime =
        runtime_of(threads, static_cast<CpuPinningPolicy>(state.range(1)));
    const CpuRuntimeContext::CurrentThreadAffinityScope scope(runtime);
    runtime.parallel_for_chunks(0, threads, above_threshold, body);
    std::vector<double> microseconds;
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        runtime.parallel_for_chunks(0, threads, above_threshold, body);
        const std::chrono::duration<double, std::micro> taken =
            std::chrono::steady_clock::now() - start;
        microseconds.push_back(taken.count());
    }
    std::ranges::sort(microseconds);
    state.counters["median_us"] = microseconds[microseconds.size() / 2];
    state.counters["p99_us"] = microseconds[microseconds.size() * 99 / 100];
}
BENCHMARK(empty_parallel_loop)
    ->ArgNames({"threads", "pinning"})
    ->ArgsProduct({{2, 4, 8}, {0, 1}})
    ->UseRealTime();

void make_runtime(benchmark::State& state) {
    system_cpu_topology();
    for (auto _ : state) {
        const CpuRuntimeContext runtime(BackendKind::cpu_simd);
        benchmark::DoNotOptimize(&runtime);
    }
}
BENCHMARK(make_runtime);

void read_topology(benchmark::State& state) {
    for (auto _ : state) {
        benchmark::DoNotOptimize(discover_cpu_topology());
    }
}
BENCHMARK(read_topology);

} // namespace
