// SPDX-License-Identifier: Apache-2.0

// Copies between layouts of complex operands of 16 MiB, beside a plain copy of as many bytes.

#include "backend/cpu/steps/cpu_layout_copy.h"
#include "tessaline/storage/storage_factory.h"

#include <benchmark/benchmark.h>

#include <cstring>
#include <vector>

namespace {

using namespace Tessaline;

constexpr std::uint64_t operand_bytes = std::uint64_t{16} << 20U;
constexpr std::uint64_t order = 1448; // of a complex64 matrix of operand_bytes

struct Form {
    DataComplexLayout complex;
    DataMatrixLayout layout;
};

constexpr Form rows{DataComplexLayout::interleaved, DataMatrixLayout::row_major};
constexpr Form columns{DataComplexLayout::interleaved, DataMatrixLayout::column_major};
constexpr Form split{DataComplexLayout::split, DataMatrixLayout::row_major};

void plain_copy(benchmark::State& state) {
    const std::vector<char> source(operand_bytes, 1);
    std::vector<char> target(operand_bytes);
    for (auto _ : state) {
        std::memcpy(target.data(), source.data(), operand_bytes);
        benchmark::DoNotOptimize(target.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * 2 * operand_bytes));
}

void layout_copy(benchmark::State& state, Form from, Form to) {
    const auto matrix = [](Form form) {
        return StorageFactory::host_matrix(DataTypeDescriptor::complex_float(), order, order,
                                           form.layout, form.complex);
    };
    const auto source = matrix(from);
    const auto target = matrix(to);
    for (auto _ : state) {
        copy_complex_layout<float>(*source, *target);
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * 2 * order * order * 8));
}

BENCHMARK(plain_copy);
BENCHMARK_CAPTURE(layout_copy, interleaved_to_split, rows, split);
BENCHMARK_CAPTURE(layout_copy, split_to_interleaved, split, rows);
BENCHMARK_CAPTURE(layout_copy, rows_to_columns, rows, columns);
BENCHMARK_CAPTURE(layout_copy, columns_to_split, columns, split);

} // namespace
