// SPDX-License-Identifier: Apache-2.0
#pragma once

// Signals during long operations. While the interpreter lock is released the interpreter only notes
// that a signal came; its handlers run when its main thread asks.

#include "tessaline/frontend/backend_executor.h"

namespace Tessaline::Python {

/// Options of a run on the calling thread. On the interpreter's main thread the run lets Python's
/// signal handlers run from time to time, for which it takes the interpreter lock; what one raises,
/// as a KeyboardInterrupt, ends the run. Handlers never run on other threads.
BackendExecutor::ExecutionOptions interruptible();

/// Finds the main thread. Called once, with the interpreter lock held.
void find_main_thread();

} // namespace Tessaline::Python
