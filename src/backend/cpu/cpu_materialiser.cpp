// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/cpu_materialiser.h"

#include "tessaline/backend/cpu/cpu_operand_views.h"
#include "tessaline/backend/cpu/launch_cpu_kernel_step.h"
#include "tessaline/storage/host_entities.h"

namespace Tessaline {

namespace {

constexpr OperandRole in0{0};
constexpr OperandRole in1{1};
constexpr OperandRole out0{operand_role_limit};

using RealVector = DenseHostRealVector<float, float>;

void add(DenseRealVectorView<const float> a, DenseRealVectorView<const float> b,
         DenseRealVectorView<float> out) {
    for (std::uint64_t index = 0; index < out.size; ++index) {
        out.data[index] = a.data[index] + b.data[index];
    }
}

} // namespace

std::unique_ptr<BackendProcessStep> CpuMaterialiser::add_host_dense_real_float_vect() {
    return launch_cpu_kernel<BoundDenseRealVectorView<RealVector, in0, true>,
                             BoundDenseRealVectorView<RealVector, in1, true>,
                             BoundDenseRealVectorView<RealVector, out0, false>>(&add);
}

} // namespace Tessaline
