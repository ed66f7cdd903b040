// SPDX-License-Identifier: Apache-2.0
#pragma once

// The instruction sets that the machine has, for tests that hold with each.

#include "backend/cpu/simd/tables/x86_simd.h"

#include <gtest/gtest.h>

namespace Tessaline::Testing {

/// Calls `body` with the tables of each instruction set that the machine has. A machine
/// without any fails the test.
template <typename Table, typename Body>
void for_each_instruction_set(const Table& avx256, const Table& avx512, const Body& body) {
    const X86Features features = detect_x86_features();
    ASSERT_TRUE(supports(features, X86Simd::avx256)) << "nothing was tested";
    {
        SCOPED_TRACE("AVX2");
        body(avx256);
    }
    if (supports(features, X86Simd::avx512)) {
        SCOPED_TRACE("AVX512");
        body(avx512);
    }
}

} // namespace Tessaline::Testing
