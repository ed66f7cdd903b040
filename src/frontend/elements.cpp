// SPDX-License-Identifier: Apache-2.0
#include "tessaline/frontend/elements.h"

#include <stdexcept>

namespace Tessaline {

void ElementsDetail::require_host(const DataTopologyDescriptor& topology) {
    if (topology.is_gpu()) {
        throw std::invalid_argument("elements - operand lies on a device");
    }
}

std::span<const long> pivots(const LuFactorisation& lu) {
    return ElementsDetail::span_of<long>(lu, BufferRole::lu_pivots, lu.size());
}

std::uint64_t swap_count(const LuFactorisation& lu) {
    return ElementsDetail::span_of<std::uint64_t>(lu, BufferRole::lu_swap_count, 1)[0];
}

} // namespace Tessaline
