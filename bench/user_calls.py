# SPDX-License-Identifier: Apache-2.0
"""Times the functions of the package as their users call them, beside what they would write else.

Arrays are those that NumPy hands out, and each call makes its result anew. Everything runs on one
thread that is bound to one processor, and a ratio is the peer's median time over ours: above 1 we
are the faster. Times are the processor's, page faults included. Results are compared before a case
is timed; a difference beyond rounding, or a call that fails, ends the program with status 1.
"""

from __future__ import annotations

import argparse
import json
import math
import os
import platform
import re
import sys
from collections.abc import Callable, Iterator
from dataclasses import asdict
from pathlib import Path
from typing import Any

import blas_peers
import numpy as np
import scipy
import scipy.linalg
import scipy.sparse.linalg
import tessaline
from interleaving import Effort, interleaved_medians
from user_cases import ELEMENT_TYPES, FUNCTIONS, ElementType, Function, widened
from user_table import OURS, USER, Row, print_rows, print_summary

#: NumPy, SciPy and the libraries read these when they are loaded.
ONE_THREAD = {
    "OPENBLAS_NUM_THREADS": "1",
    "OMP_NUM_THREADS": "1",
    "MKL_NUM_THREADS": "1",
    "MKL_THREADING_LAYER": "SEQUENTIAL",
}
#: Would force kernels on a peer that are not its own choice.
FORCING = ("OPENBLAS_CORETYPE", "MKL_ENABLE_INSTRUCTIONS", "MKL_CBWR")

FULL = Effort(turn_seconds=0.002, turns=15, seconds=1.0)
QUICK = Effort(turn_seconds=0.0005, turns=5, seconds=0.1)
#: Cases are left out where one call of ours is foretold to take longer.
LONGEST_SECONDS = 4.0

#: Bytes past a cache line at which operands are placed by --offsets.
OFFSETS = (0, 16)

NEVER_COMPARED = (
    "Context.call of a plugin's operation: only its plugin does what it does",
    "eig of real matrices by OpenBLAS and MKL: geev packs their vectors in a form of its own",
    "16-bit types by OpenBLAS and MKL: they have products for some of them and nothing else",
)

Calls = dict[str, Callable[[], Any]]


class Survey:
    """The rows so far, and what could not become one."""

    def __init__(
        self, libraries: list[blas_peers.Library], effort: Effort, offsets: tuple[int, ...]
    ) -> None:
        self.rows: list[Row] = []
        self.left_out: list[str] = []
        self.wrong: list[str] = []
        self._libraries = libraries
        self._effort = effort
        self._offsets = offsets

    def add(self, function: Function, element: ElementType, sizes: list[int]) -> None:
        """The cases of a function and a type in rising size: each foretells the next one's time."""
        past: list[tuple[int, float]] = []
        for size in sizes:
            name = f"{function.name} {element.name} {size}"
            if (foretold := extrapolated(past, size)) > LONGEST_SECONDS:
                self.left_out.append(f"{name}: one call would take some {foretold:.0f} s")
                continue
            try:
                row = self._measured(function, element, size)
            except Exception as failure:  # of either side: the other cases are still worth having
                self.wrong.append(f"{name}: {type(failure).__name__}: {failure}")
                continue
            self.rows.append(row)
            past.append((size, row.seconds[OURS]))

    def _measured(self, function: Function, element: ElementType, size: int) -> Row:
        operands = function.made(element, size)
        calls = contenders(function, element, operands, self._libraries)
        found = calls[OURS]()
        limit = function.limit(element, size)
        for peer in [name for name in calls if name != OURS]:
            error = function.error(found, calls[peer](), operands)
            if not error <= limit:
                self.wrong.append(
                    f"{function.name} {element.name} {size}: error {error:.2g} beside {peer}, "
                    f"the limit is {limit:.2g}"
                )
        for offset in self._offsets:
            placed = {name: at_offset(operand, offset) for name, operand in operands.items()}
            calls[at_name(offset)] = contenders(function, element, placed, [])[OURS]
        return Row(function.name, element.name, size, interleaved_medians(calls, self._effort))


def extrapolated(past: list[tuple[int, float]], size: int) -> float:
    """The time of a call, by the power of the size that the last two times stand for."""
    if len(past) < 2:
        return 0.0
    (first, early), (second, late) = past[-2:]
    power = math.log(late / early) / math.log(second / first)
    return float(late * (size / second) ** max(power, 0.0))


def contenders(
    function: Function,
    element: ElementType,
    operands: dict[str, Any],
    libraries: list[blas_peers.Library],
) -> Calls:
    """The calls to compare, by name."""
    names = {"np": np, "scipy": scipy, "tessaline": tessaline}
    names |= {"dtype": element.dtype, "wide": element.wide, **operands}
    ours, theirs = (widened(line, element) for line in function.factors)
    calls = {
        OURS: compiled(function.our_line, ours, names),
        USER: compiled(function.peer_line(element), theirs, names),
    }
    for library in libraries:
        call = blas_peers.call_of(library, function.name, element.dtype, operands)
        if call is not None:
            calls[library.name] = call
    return calls


def compiled(line: str, factor: str, names: dict[str, Any]) -> Callable[[], Any]:
    """A function without arguments that runs a line."""
    scope = dict(names)
    scope["factor"] = eval(factor, scope)
    call: Callable[[], Any] = eval(f"lambda: {line}", scope)
    return call


def at_name(offset: int) -> str:
    return f"at {offset}"


def at_offset(operand: Any, offset: int) -> Any:
    """A copy of an array so many bytes past a line of 64; other operands as they are."""
    if not isinstance(operand, np.ndarray):
        return operand
    memory = np.empty(operand.nbytes + 128, np.uint8)
    start = -memory.ctypes.data % 64 + offset
    copy = memory[start : start + operand.nbytes].view(operand.dtype).reshape(operand.shape)
    np.copyto(copy, operand)
    return copy


def print_conditions(libraries: list[blas_peers.Library], absent: list[str]) -> dict[str, str]:
    """Prints and returns what the figures hold for."""
    blas = np.show_config(mode="dicts")["Build Dependencies"]["blas"]
    cpuinfo = Path("/proc/cpuinfo").read_text(encoding="utf-8", errors="replace")
    model = re.search(r"^model name\s*:\s*(.*)$", cpuinfo, re.MULTILINE)
    conditions = {
        "processor": model[1] if model else platform.machine(),
        "tessaline": tessaline.__version__,
        USER: f"numpy {np.__version__} with {blas['name']} {blas['version']}, "
        f"scipy {scipy.__version__}",
        **{library.name: library.version for library in libraries},
    }
    print("Functions of the package on arrays as NumPy makes them, one thread, results made anew")
    for name, value in conditions.items():
        print(f"  {name}: {value}")
    print_notes("Left out, as it is not installed", absent)
    return conditions


def print_lines(functions: dict[str, Function]) -> None:
    """What is compared with what."""
    print("\nOperands in braces are widened where their type has 16-bit components")
    for function in functions.values():
        print(f"  {function.our_line:<40}{function.peer}")


def print_notes(title: str, notes: list[str]) -> None:
    if notes:
        print(f"\n{title}")
        for note in notes:
            print(f"  {note}")


def uncompared() -> list[str]:
    """What has no case: operations without one are found, not listed."""
    compared = {function.name for function in FUNCTIONS}
    names = (name.removeprefix("tessaline.").split("@")[0] for name in tessaline.operations())
    return [*(f"{name}: no case" for name in names if name not in compared), *NEVER_COMPARED]


def arguments() -> argparse.Namespace:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("--quick", action="store_true", help="the two smaller sizes, few turns")
    parser.add_argument(
        "--only",
        type=re.compile,
        default="",
        metavar="PATTERN",
        help="cases in whose 'function dtype size' the pattern is found",
    )
    parser.add_argument(
        "--offsets",
        action="store_true",
        help="beside our time, that on operands 0 and 16 bytes past a cache line, over it",
    )
    parser.add_argument("--json", type=Path, metavar="FILE", help="writes the figures there")
    return parser.parse_args()


def settle() -> None:
    """Binds the process to one processor, and begins it anew in an environment of one thread."""
    os.sched_setaffinity(0, {max(os.sched_getaffinity(0))})
    wanted = {name: value for name, value in os.environ.items() if name not in FORCING}
    wanted |= ONE_THREAD
    if wanted != dict(os.environ):
        os.execve(sys.executable, [sys.executable, *sys.argv], wanted)


def chosen_cases(
    pattern: re.Pattern[str], quick: bool
) -> Iterator[tuple[Function, ElementType, list[int]]]:
    for function in FUNCTIONS:
        sizes = function.sizes[:2] if quick else function.sizes
        for element in ELEMENT_TYPES:
            fitting = [n for n in sizes if pattern.search(f"{function.name} {element.name} {n}")]
            if fitting:
                yield function, element, fitting


def main() -> int:
    options = arguments()
    settle()
    libraries, absent = blas_peers.load_libraries()
    peers = [library.name for library in libraries]
    offsets = OFFSETS if options.offsets else ()
    conditions = print_conditions(libraries, absent)
    cases = list(chosen_cases(options.only, options.quick))
    print_lines({function.name: function for function, _, _ in cases})
    sys.stdout.flush()
    survey = Survey(libraries, QUICK if options.quick else FULL, offsets)
    try:
        with tessaline.Context(thread_count=1):
            for case in cases:
                survey.add(*case)
    except KeyboardInterrupt:
        survey.left_out.append("what comes after the interrupt")
    if survey.rows:
        print_rows(survey.rows, peers + [at_name(offset) for offset in offsets])
        print_summary(survey.rows, peers)
    print_notes("Left out", survey.left_out)
    print_notes("Not compared", uncompared())
    print_notes("WRONG", survey.wrong)
    if options.json:
        figures = {
            "conditions": conditions,
            "rows": [asdict(row) for row in survey.rows],
            "left_out": survey.left_out,
            "wrong": survey.wrong,
        }
        options.json.write_text(json.dumps(figures, indent=1) + "\n", encoding="utf-8")
    return 1 if survey.wrong else 0


if __name__ == "__main__":
    sys.exit(main())
