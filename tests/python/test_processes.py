# SPDX-License-Identifier: Apache-2.0
"""What befalls a whole process: imports, threads and the end of the interpreter."""

import os
import subprocess
import sys
from pathlib import Path

import pytest
import tessaline

PACKAGE = Path(tessaline.__file__).resolve().parent
ADD = """
import builtins, sys, threading, time
import numpy as np, tessaline
from tessaline import _native
def add(context=tessaline.Context(1), one=np.ones(2)):
    return context.call("tessaline.add@1", one, one, out=np.empty(2)).tolist()
"""
AGAIN = """
import importlib
del sys.modules["tessaline._native"]
again = importlib.import_module("tessaline._native")
importlib.reload(again)
print(again is _native, add())
try:
    again.LUFactor(np.zeros((2, 2)), again.Context())
except tessaline.NativeError as error:
    print(error.reason)
"""
OTHER_INTERPRETER = f"""
import _xxsubinterpreters as interpreters
other = interpreters.create()
try:
    interpreters.run_string(other, "import sys; sys.path.insert(0, {str(PACKAGE)!r}); import _native")
except interpreters.RunFailedError as error:
    print("ImportError" in str(error) and "interpreter" in str(error))
interpreters.destroy(other)
print(add())
"""
OTHER_FILE = """
import shutil, tempfile
with tempfile.TemporaryDirectory() as folder:
    shutil.copy(_native.__file__, folder)
    sys.path.insert(0, folder)
    try:
        import _native as other
    except ImportError as error:
        print(error)
print(add())
"""
# The imports at the first array are slow enough for every thread to be at them.
SLOW_IMPORTS = """
import faulthandler
faulthandler.dump_traceback_later(20, exit=True)
plain = builtins.__import__
def slow(name, *rest):
    time.sleep(0.1)
    return plain(name, *rest)
builtins.__import__ = slow
threads = [threading.Thread(target=lambda: sys.stdout.write(f"{add()}\\n")) for _ in range(3)]
for thread in threads: thread.start()
for thread in threads: thread.join()
"""
DAEMON = """
matrix = np.eye({size}) + 0.5
def work():
    while True:
        tessaline.{call}
for _ in range(3): threading.Thread(target=work, daemon=True).start()
time.sleep(0.2)
"""
# Keys equal to roles that clear the other dictionaries when they are looked up, which frees what
# only these dictionaries hold.
HOSTILE = """
class Role(int):
    __hash__ = int.__hash__
    def __eq__(self, other):
        for dictionary in self.victims: dictionary.clear()
        self.junk = [object() for _ in range(100)], ["".join(["x", str(i)]) for i in range(100)]
        return int(self) == other
OUT = 1 << 31
context = _native.Context(pinning_policy="disabled")
def call(clearing, role, make, operation):
    dictionaries = make()
    evil = Role(role)
    evil.victims = [d for i, d in enumerate(dictionaries) if i != clearing]
    dictionaries[clearing][evil] = dictionaries[clearing].pop(role)
    try:
        context.execute(operation, *dictionaries)
    except ValueError:
        pass
def arrays():
    words = {role: "".join(["float", "64"]) for role in (0, 1, OUT)}
    return {0: np.ones(9), 1: np.ones(9), OUT: np.ones(9)}, dict.fromkeys(words, "host"), words
def factors():
    matrix = _native.LUOperand(np.eye(300))
    context.execute("tessaline.lu_factor@1", {OUT: matrix}, {OUT: "host"})
    return {0: matrix, OUT: np.ones(300)}, {0: "host", OUT: "host"}
for role in (0, 1, OUT):
    for clearing in (0, 1, 2):
        for _ in range(30): call(clearing, role, arrays, "tessaline.add@1")
for _ in range(30): call(1, OUT, factors, "tessaline.solve@1")
print(add())
"""
LEAK = (
    "import ctypes; ctypes.pythonapi.Py_IncRef(ctypes.py_object(tessaline.Context())); print(add())"
)
SUM = "[2.0, 2.0]\n"


# The module `threading` takes this thread for the main one.
FIRST_IMPORT = """
import _thread, time
done = []
def first():
    import tessaline
    done.append(tessaline)
_thread.start_new_thread(first, ())
while not done: time.sleep(0.01)
import signal
import numpy as np, tessaline
heard = []
signal.signal(signal.SIGALRM, lambda *_: heard.append(1))
signal.setitimer(signal.ITIMER_REAL, 0.05, 0.05)
tessaline.eig(np.random.default_rng(7).standard_normal((200, 200)))
signal.setitimer(signal.ITIMER_REAL, 0)
print(len(heard) > 1)  # all at once after the operation they would count as one
"""


def run(script, *options, before=ADD, **environment):
    paths = {"PYTHONPATH": str(PACKAGE.parent)}
    return subprocess.run(
        [sys.executable, *options, "-c", before + script],
        env={**os.environ, **paths, **environment},
        capture_output=True,
        text=True,
        timeout=60,
    )


@pytest.mark.parametrize(
    ("script", "output"),
    [
        pytest.param(AGAIN, f"True {SUM}singular\n", id="second import"),
        pytest.param(
            OTHER_INTERPRETER,
            f"True\n{SUM}",
            id="other interpreter",
            marks=pytest.mark.skipif(
                sys.version_info >= (3, 13), reason="made by another module from 3.13 on"
            ),
        ),
        pytest.param(
            OTHER_FILE,
            f"tessaline was imported from another file before\n{SUM}",
            id="import of another file",
        ),
        pytest.param(SLOW_IMPORTS, 3 * SUM, id="threads at slow imports"),
        pytest.param(HOSTILE, SUM, id="keys that clear dictionaries"),
        pytest.param(LEAK, SUM, id="leaked context"),
        *(
            pytest.param(
                DAEMON.format(size=size, call=call), "", id=f"exit within {call} of {size}"
            )
            for size, call in [
                (1, "adjoint(matrix)"),
                (64, "matmul(matrix, matrix)"),
                (700, "lu_factor(matrix)"),
                (150, "eig(matrix)"),
            ]
        ),
    ],
)
def test_process_ends_quietly(script, output):
    found = run(script)
    assert (found.returncode, found.stdout, found.stderr) == (0, output, "")


def test_signals_are_heard_where_a_thread_imports_the_package_first():
    assert run("", before=FIRST_IMPORT).stdout == "True\n"


def test_leaks_are_reported_in_development_mode():
    assert run("print(add())", "-X", "dev").stderr == ""
    assert run(LEAK, "-X", "dev").stderr.startswith("nanobind: leaked")


def test_an_engine_that_the_processor_lacks_fails_the_import():
    found = run("print(_native.build_info()['cpu_simd'])", TESSALINE_CPU_SIMD_RUNTIME="AVX512")
    if " avx512dq" in Path("/proc/cpuinfo").read_text():
        assert found.stdout == "AVX512\n"
    else:
        assert "ImportError: CPU SIMD selection: requested implementation" in found.stderr
