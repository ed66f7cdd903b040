// SPDX-License-Identifier: Apache-2.0
#include "backend/cpu/floating/operands.h"

#include <stdexcept>

namespace Tessaline {

void FloatingOperandDetail::require_writable(const OperandBinding& binding) {
    if (!is_writable(binding)) {
        throw std::invalid_argument(std::string(floating_kernel_name) +
                                    " - mutable operand required");
    }
}

} // namespace Tessaline
