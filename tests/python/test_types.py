# SPDX-License-Identifier: Apache-2.0
"""The examples pass strict type checks, so the package's published types serve those who check."""

import subprocess
import sys
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]


@pytest.mark.slow
@pytest.mark.parametrize(
    "checker",
    [
        pytest.param(["mypy", "--cache-dir=/dev/null"], id="mypy"),
        pytest.param(["pyright", "--pythonpath", sys.executable], id="pyright"),
    ],
)
def test_examples_pass_strict_checks(checker):
    outcome = subprocess.run(
        [sys.executable, "-m", *checker], cwd=ROOT, capture_output=True, text=True, check=False
    )
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
