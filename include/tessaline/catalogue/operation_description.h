// SPDX-License-Identifier: Apache-2.0
#pragma once

// The published view of an operation and of everything that implements it. A context builds one for
// each operation and hands out references.

#include "tessaline/catalogue/implementation_numerics.h"
#include "tessaline/catalogue/operation_numerics.h"
#include "tessaline/catalogue/registration_provenance.h"

namespace Tessaline {

/// One operand of one implementation: its place in the contract and what is accepted there.
struct OperationImplementationOperand {
    OperandRole role;
    OperandAccess access;
    BackendOperandKey key;

    bool operator==(const OperationImplementationOperand&) const = default;
};

struct OperationImplementationDescription {
    BackendKind backend;
    std::vector<OperationImplementationOperand> operands; ///< inputs, then outputs
    RegistrationProvenance provenance;                    ///< of the implementation
    std::optional<ImplementationNumerics> numerics;       ///< in canonical form

    bool operator==(const OperationImplementationDescription&) const = default;
};

struct OperationDescription {
    OperationId id;
    std::vector<OperationOperandSpec> operands; ///< as in the contract
    RegistrationProvenance provenance;          ///< of the operation
    std::vector<OperationImplementationDescription> implementations;
    std::optional<OperationNumerics> numerics; ///< in canonical form

    bool operator==(const OperationDescription&) const = default;
};

} // namespace Tessaline
