// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/operation_bindings.h"

#include "tessaline/frontend/eigen_values.h"
#include "tessaline/frontend/lu_factorisation.h"
#include "tessaline/frontend/matrix.h"
#include "tessaline/frontend/scalar.h"
#include "tessaline/frontend/vector.h"

#include <algorithm>
#include <stdexcept>

namespace Tessaline {

OperationBindings& OperationBindings::insert(OperandRole role, OperandBinding binding) {
    if (!operands_.insert(role, binding)) {
        throw std::invalid_argument("OperationBindings::bind - operand role is already bound");
    }
    return *this;
}

OperationBindings& OperationBindings::bind(OperandRole role, Scalar& operand) {
    return insert(role, std::ref(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, const Scalar& operand) {
    return insert(role, ConstOperandEntityRef(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, Vector& operand) {
    return insert(role, std::ref(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, const Vector& operand) {
    return insert(role, ConstOperandEntityRef(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, Matrix& operand) {
    return insert(role, std::ref(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, const Matrix& operand) {
    return insert(role, ConstOperandEntityRef(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, LuFactorisation& operand) {
    return insert(role, std::ref(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, const LuFactorisation& operand) {
    return insert(role, ConstOperandEntityRef(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, EigenValues& operand) {
    return insert(role, std::ref(operand.entity()));
}
OperationBindings& OperationBindings::bind(OperandRole role, const EigenValues& operand) {
    return insert(role, ConstOperandEntityRef(operand.entity()));
}

BackendExecutionBindings OperationBindings::make_backend_bindings() const {
    BackendExecutionBindings bindings;
    bindings.operands = operands_;
    bindings.roles.reserve(operands_.size());
    for (const auto& [role, binding] : operands_) {
        bindings.roles.push_back(role);
    }
    std::ranges::sort(bindings.roles);
    return bindings;
}

} // namespace Tessaline
