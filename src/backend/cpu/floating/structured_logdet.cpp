// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/structured_logdet.h"

#include "backend/cpu/determinants/positive_definite_logdet.h"
#include "backend/cpu/determinants/signed_logdet.h"
#include "backend/cpu/floating/structured_operand.h"

namespace Tessaline {

template <typename T>
void StructuredLogdet<T>::slogdet(BackendExecutionBindings& bindings) {
    using Compute = ComputeOf<T>;
    using Real = Component<Compute>;
    CpuStructured::WorkingCopy<T> matrix(bindings);
    const ScalarResult<Compute> sign_result(bindings, output_role(0));
    const ScalarResult<Real> logarithm_result(bindings, output_role(1));
    matrix.validate(FloatingOperation::slogdet, false);
    const auto [sign, logarithm] = CpuStructured::signed_logdet(matrix.elements(), matrix.order());
    sign_result.store(static_cast<Compute>(sign));
    logarithm_result.store(static_cast<Real>(logarithm));
}

template <typename T>
void StructuredLogdet<T>::logdet_positive_definite(BackendExecutionBindings& bindings) {
    using Real = Component<ComputeOf<T>>;
    CpuStructured::WorkingCopy<T> matrix(bindings);
    const ScalarResult<Real> result(bindings, output_role(0));
    matrix.validate(FloatingOperation::logdet_positive_definite, true);
    result.store(static_cast<Real>(CpuStructured::positive_definite_logdet(
        matrix.elements(), matrix.order(), [&] { matrix.reload(); })));
}

#define TESSALINE_INSTANTIATE(category, Stored, Compute)                                           \
    TESSALINE_IF_FLOATING_##category(template struct StructuredLogdet<Stored>;)
TESSALINE_COMPILED_POLICIES(TESSALINE_INSTANTIATE)
#undef TESSALINE_INSTANTIATE

} // namespace Tessaline
