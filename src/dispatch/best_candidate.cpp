// SPDX-License-Identifier: Apache-2.0
#include "dispatch/best_candidate.h"

#include "tessaline/catalogue/errors.h"

namespace Tessaline {

const BackendMatch& best_candidate(const BackendCandidate& cpu_scalar,
                                   const BackendCandidate& cpu_simd, const BackendCandidate& cuda,
                                   bool pinned_operand) {
    if (cuda && pinned_operand) {
        return *cuda;
    }
    const BackendMatch* best = nullptr;
    for (const BackendCandidate* candidate : {&cpu_scalar, &cpu_simd, &cuda}) {
        if (*candidate &&
            (best == nullptr || (*candidate)->adaptation_cost() < best->adaptation_cost())) {
            best = &**candidate;
        }
    }
    if (best == nullptr) {
        throw DispatchError("BackendDispatcher::dispatch", ErrorReason::no_backend_available,
                            "BackendDispatcher::dispatch - no backend entry available");
    }
    return *best;
}

} // namespace Tessaline
