// SPDX-License-Identifier: Apache-2.0
#include "backend/common/floating_keys.h"

#include "catalogue/builtin_operation_table.h"

namespace Tessaline {

namespace {

DataTypeDescriptor type_under(const DataTypeDescriptor& policy, OperandType type) {
    const ScalarType compute = policy.compute_type();
    const bool is_double = scalar_metadata(compute).component == ScalarType::Float64;
    switch (type) {
    case OperandType::compute:
        return DataTypeDescriptor::from_scalar_types(compute, compute);
    case OperandType::real:
        return is_double ? DataTypeDescriptor::real_double() : DataTypeDescriptor::real_float();
    case OperandType::complex:
        return is_double ? DataTypeDescriptor::complex_double()
                         : DataTypeDescriptor::complex_float();
    case OperandType::integer:
        return DataTypeDescriptor::real_int();
    case OperandType::stored:
        break;
    }
    return policy;
}

} // namespace

BackendRegistryKey
floating_key(BackendKind backend, FloatingOperation operation, const DataTypeDescriptor& policy,
             BackendOperandKey (*operand_key)(OperandKind, const DataTypeDescriptor&)) {
    const OperationId& id = operation_id(operation);
    std::vector<BackendOperandKey> inputs;
    std::vector<BackendOperandKey> outputs;
    for (const BuiltinOperand& operand : builtin_operation(id).operands) {
        auto& side = is_output_role(operand.role) ? outputs : inputs;
        side.push_back(operand_key(operand.kind, type_under(policy, operand.type)));
    }
    return {backend, id, std::move(inputs), std::move(outputs)};
}

} // namespace Tessaline
