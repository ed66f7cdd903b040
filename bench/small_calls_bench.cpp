// SPDX-License-Identifier: Apache-2.0

// What a call costs where the arithmetic costs nothing: one operation on four elements, the kernel
// of a plugin beside a built-in one, and the storage of a small vector beside the allocation that
// it cannot do without.

#include "frontend/plugin/plugin_kernel.h"
#include "support/allocation_counter.h"
#include "tessaline/catalogue/builtin_operation_ids.h"
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

    const std::uint64_t before = Testing::allocation_count();
    for (auto _ : state) {
        executor.execute(add, bindings);
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(Testing::allocation_count() - before),
                           benchmark::Counter::kAvgIterations);
}
BENCHMARK(execute_add)->ArgName("pinning")->Arg(0)->Arg(1);

tessaline_status add_floats(void*, const tessaline_kernel_invocation* invocation,
                            const tessaline_error_sink*) {
    const tessaline_operand_view* operands = invocation->operands;
    const auto* a = static_cast<const float*>(operands[0].buffers->data);
    const auto* b = static_cast<const float*>(operands[1].buffers->data);
    auto* sum = static_cast<float*>(operands[2].buffers->mutable_data);
    for (std::uint64_t index = 0; index < operands[0].rows; ++index) {
        sum[index] = a[index] + b[index];
    }
    return TESSALINE_STATUS_OK;
}

BackendProcess plugin_process() {
    const auto vector = [](OperandRole role, OperandAccess access) {
        return PluginDetail::Internal::StagedOperand{role, access, OperandKind::Vector, {}};
    };
    return PluginDetail::Internal::make_kernel({BuiltinOperations::add,
                                                BackendKind::cpu_simd,
                                                {vector(input_role(0), OperandAccess::read),
                                                 vector(input_role(1), OperandAccess::read),
                                                 vector(output_role(0), OperandAccess::write)},
                                                &add_floats,
                                                nullptr},
                                               nullptr)
        .entry.materialise();
}

BackendProcess builtin_process(const Vector& vector) {
    const TessalineContext context;
    const OperandDescriptor a(input_role(0), vector.descriptor());
    const OperandDescriptor b(input_role(1), vector.descriptor());
    const OperationDescriptor request(context.operation(BuiltinOperations::add), {a, b},
                                      OperandDescriptor(output_role(0), vector.descriptor()),
                                      CrossDevicePolicy::Reject, {});
    return context.dispatcher().dispatch(request);
}

/// The steps alone, dispatched before: what the plugin's interface adds to a kernel.
void process_of_add(benchmark::State& state) {
    const Vector a = Vector::host_zeros<float>(operand_size);
    const Vector b = Vector::host_zeros<float>(operand_size);
    Vector sum = Vector::host_zeros<float>(operand_size);
    OperationBindings bindings;
    bindings.bind(input_role(0), a).bind(input_role(1), b).bind(output_role(0), sum);
    BackendExecutionBindings bound = bindings.make_backend_bindings();
    const BackendProcess process = state.range(0) == 0 ? builtin_process(sum) : plugin_process();
    BackendExecutionSession session;
    process.execute(session, bound);

    const std::uint64_t before = Testing::allocation_count();
    for (auto _ : state) {
        process.execute(session, bound);
    }
    state.counters["allocations"] =
        benchmark::Counter(static_cast<double>(Testing::allocation_count() - before),
                           benchmark::Counter::kAvgIterations);
}
BENCHMARK(process_of_add)->ArgName("plugin")->Arg(0)->Arg(1);

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
