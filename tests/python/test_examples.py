# SPDX-License-Identifier: Apache-2.0
"""The examples compute what is known in closed form or certified."""

import re
import subprocess
import sys
from pathlib import Path

EXAMPLES = Path(__file__).resolve().parents[2] / "examples"


def run(script, *arguments):
    outcome = subprocess.run(
        [sys.executable, EXAMPLES / script, *arguments], capture_output=True, text=True, check=False
    )
    return outcome.returncode, outcome.stdout, outcome.stderr


def test_the_chain_reaches_the_exact_ground_energy(tmp_path):
    picture = tmp_path / "spectrum.png"
    code, out, err = run("spin_chain.py", "--sites", "6", "--picture", str(picture))
    assert code == 0, err
    found = float(re.search(r"h/J =   1: ground energy (-?[\d.]+)", out)[1])
    exact = float(re.search(r"exact ground energy for h/J = 1: (-?[\d.]+)", out)[1])
    # Both are printed with 12 digits after the point.
    assert abs(found - exact) <= 2e-12
    assert out.count("evolution unitary: True") == 3
    assert picture.read_bytes().startswith(b"\x89PNG")
    assert run("spin_chain.py", "--sites", "7")[0] == 2


def test_the_fit_reaches_the_certified_digits():
    code, out, err = run("calibration_fit.py")
    assert code == 0, err
    digits = [float(text) for text in re.findall(r"([\d.]+) digits", out)]
    # Normal equations lose as many digits as the square of the condition number has, six of 16.
    assert len(digits) == 3
    assert min(digits) >= 9
