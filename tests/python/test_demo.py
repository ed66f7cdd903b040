# SPDX-License-Identifier: Apache-2.0
"""Both programs of the demo, which read and refuse the same files."""

import re
import subprocess
import sys
from collections.abc import Sequence
from pathlib import Path

import pytest
import tessaline

ROOT = Path(__file__).resolve().parents[2]
DATA = ROOT / "examples" / "data"
# The package lies in <build>/python/tessaline.
ADD_VECTORS = Path(tessaline.__file__).resolve().parents[2] / "examples" / "add_vectors"
DEMO = [sys.executable, ROOT / "examples" / "demo.py"]


def run(command: Sequence[object]) -> subprocess.CompletedProcess[str]:
    return subprocess.run([str(word) for word in command], capture_output=True, text=True)


@pytest.mark.parametrize("files", [[], [DATA / "norris_nist.txt", DATA / "norris_nist.txt"]])
def test_demo_finds_equal_bits_within_its_memory(files: list[Path]) -> None:
    outcome = run([*DEMO, "--program", ADD_VECTORS, *files])
    assert outcome.returncode == 0, outcome.stderr
    assert "bits of all 36 sums are equal" in outcome.stdout
    peaks = re.findall(r"peak memory ([0-9.]+) MB", outcome.stdout)
    assert len(peaks) == 2 and all(float(peak) < 100 for peak in peaks)


def test_demo_tells_of_bits_that_differ(tmp_path: Path) -> None:
    program = tmp_path / "add_vectors"
    program.write_text('#!/bin/sh\nhead -c 144 /dev/zero > "$3"\n')
    program.chmod(0o755)
    outcome = run([*DEMO, "--program", program])
    assert outcome.returncode == 1
    assert outcome.stderr == "demo: sum 0: bits 3e99999a in Python, 00000000 in C++\n"


@pytest.mark.parametrize("command", [DEMO, [ADD_VECTORS]], ids=["python", "cpp"])
@pytest.mark.parametrize(
    ("content", "message"),
    [
        (None, "{b}: cannot be read"),
        ("1\n\n# x\ntwo\n", "{b}:4: 'two' is no real number in the range of float32"),
        ("1 2\n", "{b}:1: '1 2' is no real number in the range of float32"),
        ("nan\n", "{b}:1: 'nan' is no real number in the range of float32"),
        ("0x10\n", "{b}:1: '0x10' is no real number in the range of float32"),
        ("1e39\n", "{b}:1: '1e39' is no real number in the range of float32"),
        ("1\n2\n3\n", "the lengths differ: 2 numbers and 3"),
    ],
)
def test_a_wrong_file_gives_one_line(
    tmp_path: Path, command: list[object], content: str | None, message: str
) -> None:
    a, b = tmp_path / "a.txt", tmp_path / "b.txt"
    a.write_text("# two numbers\r\n 1.5 \r\n-.25e1\r\n")
    if content is not None:
        b.write_text(content)
    outcome = run([*command, a, b])
    assert outcome.returncode == 1
    assert outcome.stdout == ""
    assert outcome.stderr == f"{Path(str(command[-1])).stem}: {message.format(b=b)}\n"
