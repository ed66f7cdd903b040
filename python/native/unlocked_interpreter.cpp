// SPDX-License-Identifier: Apache-2.0
#include "unlocked_interpreter.h"

#include <unistd.h>

namespace Tessaline::Python {

UnlockedInterpreter::~UnlockedInterpreter() {
    try {
        PyEval_RestoreThread(thread_);
    } catch (...) {
        // An interpreter that ends lets no thread in. Until 3.13 it ends the thread instead, by an
        // unwinding that would reach this noexcept destructor and abort the process.
        for (;;) {
            pause();
        }
    }
}

} // namespace Tessaline::Python
