// SPDX-License-Identifier: Apache-2.0
#pragma once

// The choice between backend families.

#include "tessaline/dispatch/backend_registry.h"

#include <optional>

namespace Tessaline {

/// The cheapest row of one family, if it has one.
using BackendCandidate = std::optional<BackendMatch>;

/// The winner among the families. CUDA wins outright when an operand is pinned. Otherwise a family
/// wins over one named before it by a strictly lower cost only: scalar, SIMD, CUDA. Raises
/// DispatchError when no family has a candidate.
const BackendMatch& best_candidate(const BackendCandidate& cpu_scalar,
                                   const BackendCandidate& cpu_simd, const BackendCandidate& cuda,
                                   bool pinned_operand);

} // namespace Tessaline
