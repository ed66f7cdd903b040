// SPDX-License-Identifier: Apache-2.0
#pragma once

// One role of an operation's contract.

#include "tessaline/catalogue/operand.h"

#include <optional>

namespace Tessaline {

struct OperationOperandSpec {
    OperandRole role;
    OperandAccess access;
    std::optional<OperandKind> kind; ///< empty accepts any operand family

    friend bool operator==(const OperationOperandSpec&, const OperationOperandSpec&) = default;
};

} // namespace Tessaline
