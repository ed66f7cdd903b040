// SPDX-License-Identifier: Apache-2.0
#pragma once

// What one core of this machine can do at best, measured by loops that do nothing else.

namespace Tessaline::Bench {

/// Floating-point operations or bytes a second.
struct MachineLimits {
    double fused_float; ///< fused multiply-add in registers of 512 bits, or 256 where need be
    double fused_double;
    double unfused_float; ///< as many multiplications as additions
    double unfused_double;
    double read; ///< bytes read from memory
    double copy; ///< bytes read and bytes written of a copy past the last cache
};

/// Measures for about two seconds, and prints what it found.
MachineLimits measure_machine_limits();

} // namespace Tessaline::Bench
