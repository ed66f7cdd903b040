// SPDX-License-Identifier: Apache-2.0
#pragma once

// The rule book of adaptation: which differences between a requested and a registered operand key
// can be bridged, and by which steps.

#include "tessaline/catalogue/backend_key.h"
#include "tessaline/catalogue/operation_descriptor.h"
#include "tessaline/execution/backend_process.h"

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace Tessaline {

/// Four ordered lists; the first rule of a list that says yes is the one that is applied. In all
/// signatures the requested key comes from the caller's operand and the registered key from the
/// chosen implementation. Predicates are pure functions of their arguments, all functions may be
/// called from several threads at once, and no step may be null.
struct BackendAdaptationRegistry {
    using Step = std::unique_ptr<BackendProcessStep>;
    /// Steps that run in this order before the kernel.
    using StepSequence = std::vector<Step>;
    /// What runs before the kernel and what runs after it.
    using StepPair = std::pair<Step, Step>;

    struct InputAdaptation {
        std::function<bool(const BackendOperandKey& requested, const BackendOperandKey& registered)>
            supports;
        std::function<StepSequence(OperandRole role, const BackendOperandKey& requested,
                                   const BackendOperandKey& registered)>
            adapt;
    };

    /// `preserve` says that a temporary must start from the output's prior content.
    struct OutputAdaptation {
        std::function<bool(const BackendOperandKey& requested, const BackendOperandKey& registered)>
            supports;
        std::function<StepPair(OperandRole role, const BackendOperandKey& requested,
                               const BackendOperandKey& registered, bool preserve)>
            adapt;
    };

    struct DescriptorInputAdaptation {
        std::function<bool(OperandRole role, const OperandDescriptor& operand,
                           const BackendOperandKey& requested, const BackendOperandKey& registered,
                           const OperationDescriptor& operation)>
            supports;
        std::function<StepSequence(
            OperandRole role, const OperandDescriptor& operand, const BackendOperandKey& requested,
            const BackendOperandKey& registered, const OperationDescriptor& operation)>
            adapt;
    };

    struct DescriptorOutputAdaptation {
        std::function<bool(OperandRole role, const OperandDescriptor& operand,
                           const BackendOperandKey& requested, const BackendOperandKey& registered,
                           const OperationDescriptor& operation, bool preserve)>
            supports;
        std::function<StepPair(OperandRole role, const OperandDescriptor& operand,
                               const BackendOperandKey& requested,
                               const BackendOperandKey& registered,
                               const OperationDescriptor& operation, bool preserve)>
            adapt;
    };

    std::vector<InputAdaptation> inputs;                        ///< for pricing and for steps
    std::vector<OutputAdaptation> outputs;                      ///< for pricing and for steps
    std::vector<DescriptorInputAdaptation> descriptor_inputs;   ///< for steps of the CUDA family
    std::vector<DescriptorOutputAdaptation> descriptor_outputs; ///< for steps of the CUDA family
};

} // namespace Tessaline
