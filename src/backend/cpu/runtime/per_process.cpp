// SPDX-License-Identifier: Apache-2.0
#include "tessaline/backend/cpu/per_process.h"

#include <pthread.h>

namespace Tessaline::PerProcessDetail {

constinit std::atomic<std::uint32_t> forks{0};

namespace {

// Handlers of children run in the order of registration: registering when the library is loaded
// puts this one before those of the program. Where there is no memory for it, children behave as
// their parents.
[[maybe_unused]] const int registered =
    pthread_atfork(nullptr, nullptr, [] { forks.fetch_add(1, std::memory_order_relaxed); });

} // namespace

} // namespace Tessaline::PerProcessDetail
