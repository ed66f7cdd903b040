// SPDX-License-Identifier: Apache-2.0

// What the catalogue costs: to build the default context, and to find and make the process of one
// call in it.

#include "support/allocation_counter.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
#include "tessaline/frontend/tessaline_context.h"

#include <benchmark/benchmark.h>

namespace Tessaline::Bench {

namespace {

void default_context(benchmark::State& state) {
    for (auto _ : state) {
        const TessalineContext context;
        benchmark::DoNotOptimize(&context);
    }
}
BENCHMARK(default_context)->Unit(benchmark::kMillisecond);

OperandDescriptor vector(OperandRole role, const DataTypeDescriptor& type) {
    return {role, VectorDescriptor(4, DataTopologyDescriptor::pageable_host(0), type,
                                   DataVectorFormat::dense,
                                   type.is_complex() ? DataComplexLayout::interleaved
                                                     : DataComplexLayout::none)};
}

/// Counts the allocations of one dispatch as well.
void dispatch_add(benchmark::State& state, const DataTypeDescriptor& type) {
    const TessalineContext context;
    const OperationDescriptor add(context.operation(BuiltinOperations::add),
                                  {vector(input_role(0), type), vector(input_role(1), type)},
                                  vector(output_role(0), type), CrossDevicePolicy::Reject, {});
    const std::uint64_t before = Testing::allocation_count();
    for (auto _ : state) {
        benchmark::DoNotOptimize(context.dispatcher().dispatch(add));
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(Testing::allocation_count() - before),
                           benchmark::Counter::kAvgIterations);
}
BENCHMARK_CAPTURE(dispatch_add, float32, DataTypeDescriptor::real_float());
BENCHMARK_CAPTURE(dispatch_add, float64, DataTypeDescriptor::real_double());
BENCHMARK_CAPTURE(dispatch_add, complex64, DataTypeDescriptor::complex_float());
BENCHMARK_CAPTURE(dispatch_add, complex128, DataTypeDescriptor::complex_double());

} // namespace

} // namespace Tessaline::Bench
