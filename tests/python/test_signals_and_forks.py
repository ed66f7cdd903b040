# SPDX-License-Identifier: Apache-2.0
"""Signals in the middle of a computation, and forked children of a process that has workers."""

import os
import signal
import subprocess
import sys
import textwrap
import threading
import time
from contextlib import contextmanager

import numpy as np
import pytest
import tessaline

NOISE = np.random.default_rng(7)


class Interrupted(BaseException):
    """What nobody catches by accident."""


@contextmanager
def alarm(handler, delay, interval=0.0):
    """Calls `handler` as a signal's after `delay` seconds, and every `interval` from then on."""
    former = signal.signal(signal.SIGALRM, lambda *_: handler())
    signal.setitimer(signal.ITIMER_REAL, delay, interval)
    try:
        yield
    finally:
        signal.setitimer(signal.ITIMER_REAL, 0)
        signal.signal(signal.SIGALRM, former)


def interrupt():
    raise Interrupted


def run_late():
    raise RuntimeError("late")


def press_control_c():
    os.kill(os.getpid(), signal.SIGINT)


@pytest.mark.parametrize(
    ("handler", "error"),
    [(press_control_c, KeyboardInterrupt), (interrupt, Interrupted), (run_late, RuntimeError)],
)
def test_a_signal_handler_ends_a_long_operation(handler, error):
    matrix = NOISE.standard_normal((300, 300))
    start = time.monotonic()
    with pytest.raises(error) as raised, alarm(handler, 0.1):
        tessaline.eig(matrix)
    assert type(raised.value) is error
    assert time.monotonic() - start < 2, "most of the operation was still to come"
    assert tessaline.sum(np.ones(3)) == 3


@pytest.mark.parametrize(
    ("function", "order"),
    [
        pytest.param(lambda matrix: np.vstack(tessaline.eig(matrix)), 150, id="an operation"),
        pytest.param(lambda matrix: tessaline.lu_factor(matrix).factors, 2000, id="an object"),
    ],
)
def test_a_handler_that_raises_nothing_changes_nothing(function, order):
    matrix = NOISE.standard_normal((order, order)) + 0j
    undisturbed = function(matrix)
    small = matrix[:40, :40].copy()
    products = []
    times = [time.monotonic()]

    def handler():
        products.append(tessaline.matmul(small, small))
        times.append(time.monotonic())

    with alarm(handler, 0.02, 0.02):
        disturbed = function(matrix)
        times.append(time.monotonic())
    assert max(np.diff(times)) < (times[-1] - times[0]) / 2, "handlers wait for no operation"
    assert all(np.array_equal(product, products[0]) for product in products)
    assert np.array_equal(disturbed, undisturbed)


def test_a_handler_runs_on_the_main_thread_alone():
    matrix = NOISE.standard_normal((150, 150))
    results = []
    thread = threading.Thread(target=lambda: results.append(tessaline.eig(matrix)))
    handled_on = []
    with alarm(lambda: handled_on.append(threading.current_thread()), 0.01, 0.01):
        thread.start()
        thread.join()
    assert set(handled_on) == {threading.main_thread()}
    assert np.array_equal(results[0][0], tessaline.eig(matrix)[0])


# Four processors of one memory node, whatever the machine has.
PROCESSORS = """
    #define _GNU_SOURCE
    #include <dlfcn.h>
    #include <sched.h>
    #include <stdio.h>
    #include <string.h>
    int sched_getaffinity(pid_t process, size_t bytes, cpu_set_t* set) {
        (void)process;
        memset(set, 0, bytes);
        *(unsigned char*)set = 15;
        return 0;
    }
    FILE* fopen64(const char* path, const char* mode) {
        if (strncmp(path, "/sys/devices/system/node", 24) == 0) return NULL;
        return ((FILE* (*)(const char*, const char*))dlsym(RTLD_NEXT, "fopen64"))(path, mode);
    }
    FILE* fopen(const char* path, const char* mode) { return fopen64(path, mode); }
"""

PARENT = """
    import multiprocessing, os, sys, threading, time
    import numpy as np
    import tessaline

    def product(seed):
        a = np.random.default_rng(seed).standard_normal((200, 200))
        return tessaline.matmul(a, a)

    def has_threads(count):
        # One that was joined may take its time to go.
        for _ in range(500):
            if len(os.listdir("/proc/self/task")) == count:
                return True
            time.sleep(0.01)
        return False

    def child_ends_well(function):
        child = os.fork()
        if child == 0:
            os._exit(0 if function() else 1)
        return os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 0

    held = threading.Event()
    done = threading.Event()

    def hold_lock():
        with tessaline._context._lock:
            held.set()
            done.wait()

    holder = threading.Thread(target=hold_lock)
    holder.start()
    held.wait()
    assert child_ends_well(lambda: tessaline.sum(np.ones(3)) == 3)
    done.set()
    holder.join()

    expected = [product(seed) for seed in range(4)]
    assert has_threads(4), "the parent has workers"

    def repeats():
        same = np.array_equal(product(0), expected[0])
        return same and has_threads(4)

    assert child_ends_well(repeats)
    child = os.fork()
    if child == 0:
        sys.exit(3)
    assert os.waitstatus_to_exitcode(os.waitpid(child, 0)[1]) == 3
    with multiprocessing.get_context("fork").Pool(2) as pool:
        found = pool.map(product, range(4))
    assert all(map(np.array_equal, found, expected))
"""


def test_forked_children_start_workers_of_their_own(tmp_path):
    library = tmp_path / "processors.so"
    (tmp_path / "processors.c").write_text(textwrap.dedent(PROCESSORS))
    subprocess.run(
        [os.environ.get("CC", "cc"), "-shared", "-fPIC", "-o", library, tmp_path / "processors.c"],
        check=True,
    )
    outcome = subprocess.run(
        [sys.executable, "-c", textwrap.dedent(PARENT)],
        # NumPy's products bring threads of their own, which come and go with forks.
        env={**os.environ, "LD_PRELOAD": str(library), "OPENBLAS_NUM_THREADS": "1"},
        capture_output=True,
        text=True,
        timeout=120,
    )
    assert outcome.returncode == 0, outcome.stderr
