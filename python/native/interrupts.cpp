// SPDX-License-Identifier: Apache-2.0
#include "interrupts.h"

#include <nanobind/nanobind.h>

#include <atomic>
#include <pthread.h>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

constinit std::atomic<unsigned long> main_thread{0};

// In a forked child the thread that forked is the main one.
[[maybe_unused]] const int registered =
    pthread_atfork(nullptr, nullptr, [] { main_thread = PyThread_get_thread_ident(); });

void run_signal_handlers() {
    const nb::gil_scoped_acquire locked;
    if (PyErr_CheckSignals() != 0) {
        throw nb::python_error();
    }
}

} // namespace

BackendExecutor::ExecutionOptions interruptible() {
    BackendExecutor::ExecutionOptions options;
    if (PyThread_get_thread_ident() == main_thread) {
        options.interrupt = run_signal_handlers;
    }
    return options;
}

void find_main_thread() {
    // The interpreter puts new threads first in its list, so the last is the one that started it.
    // The module `threading` takes whichever thread first imports it for the main one.
    PyThreadState* thread = PyInterpreterState_ThreadHead(PyInterpreterState_Get());
    while (PyThreadState* const older = PyThreadState_Next(thread)) {
        thread = older;
    }
    main_thread = thread->thread_id;
}

} // namespace Tessaline::Python
