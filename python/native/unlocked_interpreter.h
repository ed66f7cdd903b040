// SPDX-License-Identifier: Apache-2.0
#pragma once

// The scope of native work that other Python threads may run beside.

#include <Python.h>

namespace Tessaline::Python {

/// Releases the interpreter lock for its lifetime. The thread must hold the lock.
///
/// Where the interpreter ends before the lock is retaken, as under a daemon thread, the thread is
/// parked for good: its frames must not be unwound, since they would release Python objects.
class UnlockedInterpreter {
  public:
    UnlockedInterpreter() : thread_(PyEval_SaveThread()) {}
    ~UnlockedInterpreter();
    UnlockedInterpreter(const UnlockedInterpreter&) = delete;
    UnlockedInterpreter& operator=(const UnlockedInterpreter&) = delete;

  private:
    PyThreadState* thread_;
};

} // namespace Tessaline::Python
