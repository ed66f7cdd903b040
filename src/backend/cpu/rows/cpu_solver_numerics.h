// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the records of the CPU's general eigensolver have in common.

#include "tessaline/dispatch/builtin_capability.h"

namespace Tessaline::CpuNumerics {

/// The record of the shifted QR iteration, which works in complex128.
ImplementationNumerics shifted_qr(std::string algorithm, PrecisionMode mode,
                                  std::vector<AlgorithmParameter> parameters,
                                  std::vector<std::string> precision_notes,
                                  std::vector<std::string> notes);

} // namespace Tessaline::CpuNumerics
