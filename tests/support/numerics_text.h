// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keys made from a line of text.

#include "support/operand_text.h"
#include "tessaline/catalogue/backend_key.h"

namespace Tessaline::Testing {

/// The key of a built-in operation over operands written as in operand_text.h, all stored in one
/// type.
inline BackendRegistryKey key_of(const std::string& name, const std::string& operands,
                                 ScalarType storage = ScalarType::Float64) {
    std::vector<BackendOperandKey> inputs;
    std::vector<BackendOperandKey> outputs;
    for (const OperandDescriptor& operand : operands_of(operands)) {
        BackendOperandKey key = operand_key_for(operand);
        key.storage = storage;
        (is_output_role(operand.role()) ? outputs : inputs).push_back(key);
    }
    return {BackendKind::cpu_simd, OperationId("tessaline." + name, 1), inputs, outputs};
}

} // namespace Tessaline::Testing
