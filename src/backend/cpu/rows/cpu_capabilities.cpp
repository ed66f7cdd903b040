// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/rows/cpu_capabilities.h"

#include "backend/cpu/rows/cpu_materialiser.h"
#include "backend/cpu/rows/cpu_numerics.h"
#include "backend/cpu/rows/engine_operands.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

#include <span>

namespace Tessaline {

namespace {

using namespace EngineRows;

/// A row of the engine as it is registered.
struct EngineRow {
    BackendRegistryKey (*key)();
    CpuMaterialiser::Step (*make_step)();
};

template <const OperationId& operation, typename... Operands>
BackendRegistryKey engine_key() {
    std::vector<BackendOperandKey> inputs;
    std::vector<BackendOperandKey> outputs;
    ((is_read<Operands::role> ? inputs : outputs).push_back(Operands::key()), ...);
    return {BackendKind::cpu_simd, operation, std::move(inputs), std::move(outputs)};
}

#define TESSALINE_LIST_ROW(operation, kernel, name, ...)                                           \
    {engine_key<BuiltinOperations::operation, __VA_ARGS__>, CpuMaterialiser::name},
constexpr EngineRow float16_rows[] = {
    TESSALINE_FLOAT16_ENGINE_ROWS(TESSALINE_LIST_ROW, TESSALINE_LIST_ROW)};
constexpr EngineRow float32_rows[] = {
    TESSALINE_FLOAT32_ENGINE_ROWS(TESSALINE_LIST_ROW, TESSALINE_LIST_ROW)};
constexpr EngineRow complex64_rows[] = {
    TESSALINE_COMPLEX64_ENGINE_ROWS(TESSALINE_LIST_ROW, TESSALINE_LIST_ROW)};
#undef TESSALINE_LIST_ROW

std::vector<BackendRegistration::BuiltinCapability>
records_of(std::span<const EngineRow> rows,
           ImplementationNumerics (*numerics)(const BackendRegistryKey&)) {
    std::vector<BackendRegistration::BuiltinCapability> records;
    records.reserve(rows.size());
    for (const EngineRow& row : rows) {
        BackendRegistryKey key = row.key();
        auto record = numerics(key);
        records.push_back(
            {std::move(key), BackendRegistration::backend_entry(row.make_step), std::move(record)});
    }
    return records;
}

} // namespace

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<Float16, float>>::legacy_records() {
    return records_of(float16_rows, CpuNumerics::float16_float32);
}

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<float, float>>::legacy_records() {
    return records_of(float32_rows, CpuNumerics::float32);
}

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<std::complex<float>, std::complex<float>>>::legacy_records() {
    return records_of(complex64_rows, CpuNumerics::complex64);
}

} // namespace Tessaline
