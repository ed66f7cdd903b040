// SPDX-License-Identifier: Apache-2.0
#pragma once

// Keys made from a line of text, and a made-up profile of records.

#include "support/operand_text.h"
#include "tessaline/dispatch/builtin_capability.h"

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

/// No two fields have one value, so that a record shows which one it took.
inline BackendRegistration::DenseNumericsProfile made_up_profile(PrecisionMode mode, bool tree) {
    return {.algorithm_prefix = "p.",
            .reduction_prefix = "r.",
            .gemm_algorithm = "g.mm",
            .gemv_algorithm = "g.mv",
            .accumulation_type = ScalarType::Float64,
            .norm_accumulation_type = ScalarType::Float32,
            .precision_mode = mode,
            .reduction_order = ReductionOrder::pairwise,
            .tree_reduction = tree,
            .absolute_tolerance = 0.5,
            .relative_tolerance = 0.25};
}

} // namespace Tessaline::Testing
