// SPDX-License-Identifier: Apache-2.0

// What a call costs where the arithmetic costs nothing: one operation on four elements, and the
// storage of a small vector beside the allocation that it cannot do without.

#include "allocation_counter.h"
#include "tessaline/frontend/operation_bindings.h"
#include "tessaline/frontend/tessaline_context.h"
#include "tessaline/frontend/tessaline_executor.h"
#include "tessaline/frontend/vector.h"
#include "tessaline/storage/host_buffer.h"
#include "tessaline/storage/storage_factory.h"

#include <benchmark/benchmark.h>
#include <new>

namespace Tessaline::Bench {

namespace {

constexpr std::uint64_t operand_size = 4;
constexpr std::uint64_t stored_size = 16;

/// Counts the allocations of one call as well; the bindings are made once, as in a caller's loop.
/// With pinning each call asks the kernel for the caller's affinity, sets it and sets it back.
void execute_add(benchmark::State& state) {
    const Vector a = Vector::host_zeros<float>(operand_size);
    const Vector b = Vector::host_zeros<float>(operand_size);
    Vector sum = Vector::host_zeros<float>(operand_size);
    const TessalineContext context;
    CpuRuntimeOptions options;
    options.pinning_policy = static_cast<CpuPinningPolicy>(state.range(0));
    TessalineExecutor executor(context, BackendExecutor::cpu_only(options));
    const OperationId add = OperationId::parse("tessaline.add@1");
    OperationBindings bindings;
    bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), sum);
    executor.execute(add, bindings);

    const std::uint64_t before = allocation_count();
    for (auto _ : state) {
        executor.execute(add, bindings);
    }
    state.counters["allocations"] = benchmark::Counter(
        static_cast<double>(allocation_count() - before), benchmark::Counter::kAvgIterations);
}
BENCHMARK(execute_add)->ArgName("pinning")->Arg(0)->Arg(1);

void host_vector(benchmark::State& state) {
    const DataTypeDescriptor type = DataTypeDescriptor::real_float();
    for (auto _ : state) {
        benchmark::DoNotOptimize(
            StorageFactory::host_vector(type, stored_size, DataComplexLayout::none));
    }
}
BENCHMARK(host_vector);

void bare_allocation(benchmark::State& state) {
    constexpr std::align_val_t alignment{host_buffer_alignment<float>};
    for (auto _ : state) {
        void* memory = ::operator new(stored_size * sizeof(float), alignment);
        benchmark::DoNotOptimize(memory);
        ::operator delete(memory, alignment);
    }
}
BENCHMARK(bare_allocation);

} // namespace

} // namespace Tessaline::Bench
