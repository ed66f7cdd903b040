// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/register_cpu.h"

#include "backend/cpu/cpu_materialiser.h"
#include "tessaline/catalogue/builtin_operation_ids.h"

namespace Tessaline {

void register_cpu_backends(BackendRegistry& registry, const RegistrationProvenance& provenance) {
    BackendOperandKey vector;
    vector.kind = OperandKind::Vector;
    vector.format = OperandFormat::of(DataVectorFormat::dense);
    registry.register_backend(
        {BackendKind::cpu_simd, BuiltinOperations::add, {vector, vector}, vector}, BackendEntry([] {
            BackendProcess process;
            process.push_back(CpuMaterialiser::add_host_dense_real_float_vect());
            return process;
        }),
        provenance, std::nullopt);
}

} // namespace Tessaline
