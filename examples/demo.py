# SPDX-License-Identifier: Apache-2.0
"""Adds two vectors from text files as float32, in Python and in C++, and compares the bits.

A file holds one real number a line; blank lines and lines that begin with '#' are skipped. Without
arguments the two columns of the Norris data set are added.
"""

import argparse
import re
import subprocess
import sys
import tempfile
import time
from collections.abc import Callable
from pathlib import Path

import numpy as np
import tessaline

DATA = Path(__file__).resolve().parent / "data"
NUMBER = re.compile(r"-?(\d+\.?\d*|\.\d+)([eE][+-]?\d+)?", re.ASCII)
LARGEST = float(np.finfo(np.float32).max)
SHOWN = 4


class DemoError(Exception):
    """What the user is told in one line."""


def parse_number(text: str, place: str) -> float:
    value = float(text) if NUMBER.fullmatch(text) else float("inf")
    if abs(value) > LARGEST:
        raise DemoError(f"{place}: '{text}' is no real number in the range of float32")
    return value


def read_numbers(path: Path) -> np.ndarray:
    try:
        lines = path.read_text(encoding="ascii", errors="backslashreplace").splitlines()
    except OSError as error:
        raise DemoError(f"{path}: cannot be read") from error
    texts = [(row, line.strip()) for row, line in enumerate(lines, start=1)]
    numbers = [
        parse_number(text, f"{path}:{row}")
        for row, text in texts
        if text and not text.startswith("#")
    ]
    return np.array(numbers, dtype=np.float32)


def best_microseconds_per_call(call: Callable[[], object]) -> float:
    batches, calls = 20, 500
    best = float("inf")
    for _ in range(batches):
        start = time.perf_counter()
        for _ in range(calls):
            call()
        best = min(best, (time.perf_counter() - start) / calls)
    return best * 1e6


def peak_megabytes() -> float:
    status = Path("/proc/self/status").read_text(encoding="ascii")
    (kilobytes,) = re.findall(r"VmHWM:\s+(\d+)", status)
    return int(kilobytes) * 1024 / 1e6


def run_program(program: Path, files: list[Path]) -> tuple[np.ndarray, str]:
    """The bits of the sums of the C++ program, and its closing line."""
    with tempfile.TemporaryDirectory() as folder:
        bits = Path(folder) / "sums"
        try:
            outcome = subprocess.run(
                [program, *files, bits], stdout=subprocess.PIPE, text=True, check=True
            )
        except (OSError, subprocess.CalledProcessError) as error:
            raise DemoError(f"{program}: {error}") from error
        return np.fromfile(bits, dtype=np.uint32), outcome.stdout.strip()


def compare(python: np.ndarray, cpp: np.ndarray) -> None:
    if python.shape != cpp.shape:
        raise DemoError(f"C++ gave {cpp.size} sums, Python {python.size}")
    for index in np.flatnonzero(python != cpp)[:1]:
        raise DemoError(f"sum {index}: bits {python[index]:08x} in Python, {cpp[index]:08x} in C++")


def run(files: list[Path], program: Path | None) -> None:
    a, b = (read_numbers(path) for path in files)
    if a.shape != b.shape:
        raise DemoError(f"the lengths differ: {a.size} numbers and {b.size}")
    out = np.empty_like(a)

    def add() -> object:
        return tessaline.add(a, b, out=out)

    add()
    bits = out.view(np.uint32)
    print(f"tessaline {tessaline.__version__}: tessaline.add@1 of two float32 vectors")
    print(f"  {files[0].name} + {files[1].name}")
    for index in range(min(SHOWN, out.size)):
        print(f"  {a[index]!s} + {b[index]!s} = {out[index]!s}  (bits {bits[index]:08x})")
    microseconds = best_microseconds_per_call(add)
    print(
        f"Python: {out.size} sums, {microseconds:.2f} us a call, "
        f"peak memory {peak_megabytes():.1f} MB"
    )
    if program is not None:
        cpp_bits, closing_line = run_program(program, files)
        print(f"C++:    {closing_line}")
        compare(bits, cpp_bits)
        print(f"The bits of all {out.size} sums are equal in Python and C++.")


def main() -> int:
    parser = argparse.ArgumentParser(description=(__doc__ or "").splitlines()[0])
    parser.add_argument("files", nargs="*", type=Path, metavar="FILE", help="two files to add")
    parser.add_argument("--program", type=Path, help="the C++ program to compare with")
    arguments = parser.parse_args()
    files = arguments.files or [DATA / "norris_customer.txt", DATA / "norris_nist.txt"]
    if len(files) != 2:
        parser.error("name two files or none")
    try:
        run(files, arguments.program)
    except DemoError as error:
        print(f"demo: {error}", file=sys.stderr)
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
