// SPDX-License-Identifier: Apache-2.0
#pragma once

// The part of a register transpose that all vector widths share.

#include <cstddef>

namespace Tessaline::SimdKernels {

/// Transposes within each four lanes, for each four rows: row 4 g + j then holds, as its lanes
/// 4 l to 4 l + 3, column 4 l + j of the rows 4 g to 4 g + 3.
template <typename Set>
void transpose_quads(typename Set::Register (&rows)[Set::lanes]) {
    using Register = typename Set::Register;
    for (std::size_t i = 0; i < Set::lanes; i += 4) {
        const Register low_01 = Set::unpack_low(rows[i], rows[i + 1]);
        const Register high_01 = Set::unpack_high(rows[i], rows[i + 1]);
        const Register low_23 = Set::unpack_low(rows[i + 2], rows[i + 3]);
        const Register high_23 = Set::unpack_high(rows[i + 2], rows[i + 3]);
        rows[i] = Set::low_pairs(low_01, low_23);
        rows[i + 1] = Set::high_pairs(low_01, low_23);
        rows[i + 2] = Set::low_pairs(high_01, high_23);
        rows[i + 3] = Set::high_pairs(high_01, high_23);
    }
}

} // namespace Tessaline::SimdKernels
