# SPDX-License-Identifier: Apache-2.0
"""Runs the benchmarks of a build folder and prints their figures beside the targets."""

import argparse
import json
import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import tessaline
from interleaving import Effort, interleaved_medians
from tessaline import _native

REPETITIONS = 9
EXAMPLES = Path(__file__).resolve().parent.parent / "examples"


def medians(program: Path) -> dict[str, dict[str, float]]:
    """The median row of each benchmark, by name. Repetitions of all benchmarks are interleaved, so
    that a disturbance of the machine does not fall on one of them."""
    outcome = subprocess.run(
        [
            program,
            f"--benchmark_repetitions={REPETITIONS}",
            "--benchmark_enable_random_interleaving=true",
            "--benchmark_min_time=0.1",
            "--benchmark_format=json",
        ],
        capture_output=True,
        check=True,
    )
    rows = json.loads(outcome.stdout)["benchmarks"]
    return {row["run_name"]: row for row in rows if row.get("aggregate_name") == "median"}


def demo_megabytes(build: Path) -> list[tuple[str, float]]:
    """The peak memory that the demo reports for each of its two programs."""
    program = build / "examples" / "add_vectors"
    outcome = subprocess.run(
        [sys.executable, EXAMPLES / "demo.py", "--program", program],
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    )
    found = re.findall(r"^(\S+): .*peak memory ([0-9.]+) MB", outcome.stdout, re.MULTILINE)
    return [(language, float(megabytes)) for language, megabytes in found]


def print_python_calls() -> None:
    """Small products from Python beside NumPy's."""
    a, b, out = (np.ones((4, 4), np.float32) for _ in range(3))
    bindings = {0: a, 1: b, 1 << 31: out}
    locations = dict.fromkeys(bindings, "host")
    unpinned, pinned = _native.Context(pinning_policy="disabled"), _native.Context()
    calls = {
        "numpy": lambda: np.matmul(a, b),
        "execute": lambda: unpinned.execute("tessaline.matmul@1", bindings, locations),
        "pinned": lambda: pinned.execute("tessaline.matmul@1", bindings, locations),
        "function": lambda: tessaline.matmul(a, b),
    }
    effort = Effort(turn_seconds=0.005, turns=2 * REPETITIONS, seconds=5.0)
    seconds = interleaved_medians(calls, effort)
    found = {name: each * 1e6 for name, each in seconds.items()}
    twice = 2 * found["numpy"]
    print("\nProduct of two 4 by 4 float32 matrices from Python")
    print_row("numpy.matmul", found["numpy"], "us")
    print_row("Context.execute", found["execute"], "us", twice)
    print_row("  with pinning, its default", found["pinned"], "us")
    print_row("tessaline.matmul", found["function"], "us", twice)


def print_comparisons(build: Path) -> None:
    """The tables of the programs that compare with OpenBLAS."""
    own_choice = {n: v for n, v in os.environ.items() if not n.startswith("OPENBLAS_")}
    narrow = {"OPENBLAS_CORETYPE": "Haswell", "TESSALINE_CPU_SIMD_RUNTIME": "AVX2"}
    for name, environment in (
        ("products", own_choice),
        ("products", own_choice | narrow),
        ("solvers", own_choice),
        ("memory", own_choice),
    ):
        program = build / "bench" / f"compare_{name}"
        settings = [f"{n}={v}" for n, v in environment.items() if n in narrow]
        print(f"\n{' '.join([*settings, program.name])}", flush=True)
        if program.exists():
            subprocess.run([program], env=environment, check=True)
        else:
            print("left out: it was not built, since OpenBLAS or LAPACKE is not installed")


def print_user_calls() -> int:
    """The table of every function as users call it. Answers the status of its program."""
    program = Path(__file__).resolve().parent / "user_calls.py"
    status = subprocess.run([sys.executable, program]).returncode
    print()
    return status


def print_row(figure: str, value: float, unit: str, target: float | None = None) -> None:
    aim = (
        "" if target is None else f"at most {target:.3g}" + ("" if value <= target else "  MISSED")
    )
    print(f"{figure:<52}{value:>9.2f} {unit:<12}{aim}")


def main() -> int:
    parser = argparse.ArgumentParser(description=__doc__)
    parser.add_argument("build", type=Path, help="the build folder")
    build = parser.parse_args().build

    status = print_user_calls()
    small = medians(build / "bench" / "bench_small_calls")
    unpinned, pinned = small["execute_add/pinning:0"], small["execute_add/pinning:1"]
    stored, bare = small["host_vector"]["cpu_time"], small["bare_allocation"]["cpu_time"]
    print(f"Medians of {REPETITIONS} interleaved repetitions")
    print_row("execute of add, 4 elements", unpinned["cpu_time"] / 1000, "us", 1.5)
    print_row("  its allocations", unpinned["allocations"], "a call")
    print_row("  with pinning: three system calls more", pinned["cpu_time"] / 1000, "us")
    builtin, plugin = small["process_of_add/plugin:0"], small["process_of_add/plugin:1"]
    print_row("steps of add, 4 elements, built in", builtin["cpu_time"], "ns")
    print_row("  by a plugin, beyond that", plugin["cpu_time"] - builtin["cpu_time"], "ns", 300)
    print_row("  its allocations", plugin["allocations"] - builtin["allocations"], "a call", 2)
    print_row("host_vector of 16 float32", stored, "ns")
    print_row("  the bare aligned allocation and release", bare, "ns")
    print_row("  beyond the bare allocation", stored - bare, "ns", 200)
    catalogue = medians(build / "bench" / "bench_dispatch")
    dispatch = catalogue["dispatch_add/float32"]
    print_row("building the default context", catalogue["default_context"]["cpu_time"], "ms", 20)
    print_row("dispatch of add in it", dispatch["cpu_time"], "ns", 400)
    print_row("  its allocations", dispatch["allocations"], "a call")
    for language, megabytes in demo_megabytes(build):
        print_row(f"peak memory of the demo, {language}", megabytes, "MB", 100)
    print_python_calls()
    print_comparisons(build)
    return status


if __name__ == "__main__":
    sys.exit(main())
