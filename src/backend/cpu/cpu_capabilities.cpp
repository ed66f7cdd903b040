// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_capabilities.h"

#include "backend/cpu/cpu_materialiser.h"
#include "backend/cpu/cpu_numerics.h"
#include "backend/cpu/cpu_operand_keys.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

#include <initializer_list>
#include <span>

namespace Tessaline {

namespace {

namespace Ids = BuiltinOperations;

/// A kernel of the engine and what it accepts.
struct EngineRow {
    const OperationId* operation;
    std::initializer_list<BackendOperandKey> inputs;
    BackendOperandKey output;
    std::unique_ptr<BackendProcessStep> (*make_step)();
};

constexpr BackendOperandKey real_vector =
    dense_host_key(OperandKind::Vector, DataTypeDescriptor::real_float(), DataComplexLayout::none);

constexpr EngineRow float32_rows[] = {
    {&Ids::add,
     {real_vector, real_vector},
     real_vector,
     CpuMaterialiser::add_host_dense_real_float_vect},
};

std::vector<BackendRegistration::BuiltinCapability>
records_of(std::span<const EngineRow> rows,
           ImplementationNumerics (*numerics)(const BackendRegistryKey&)) {
    std::vector<BackendRegistration::BuiltinCapability> records;
    records.reserve(rows.size());
    for (const EngineRow& row : rows) {
        BackendRegistryKey key(BackendKind::cpu_simd, *row.operation, row.inputs, row.output);
        auto record = numerics(key);
        records.push_back(
            {std::move(key), BackendRegistration::backend_entry(row.make_step), std::move(record)});
    }
    return records;
}

} // namespace

std::vector<BackendRegistration::BuiltinCapability>
CpuCapabilities<NumericPolicy<float, float>>::legacy_records() {
    return records_of(float32_rows, CpuNumerics::float32);
}

} // namespace Tessaline
