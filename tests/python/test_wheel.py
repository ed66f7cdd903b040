# SPDX-License-Identifier: Apache-2.0
"""The wheel, built and installed into an empty environment, is all that a user needs."""

import os
import re
import subprocess
import sys
import sysconfig
from importlib import metadata
from pathlib import Path

import pytest

ROOT = Path(__file__).resolve().parents[2]
SCRIPT = """
import importlib.resources, pathlib, sys
import numpy, tessaline
files = importlib.resources.files("tessaline")
for name in ("py.typed", "_native.pyi"):
    assert files.joinpath(name).is_file(), name
assert (pathlib.Path(tessaline.get_include()) / "tessaline" / "plugin.h").is_file()
assert pathlib.Path(tessaline.__file__).is_relative_to(sys.prefix), tessaline.__file__
a = numpy.array([[2, 1], [1, 3]], numpy.float32)
print(tessaline.__version__, tessaline.lu_factor(a).solve([3, 4]).tolist())
"""


def run(*command, **options):
    outcome = subprocess.run(command, capture_output=True, text=True, check=False, **options)
    assert outcome.returncode == 0, outcome.stdout + outcome.stderr
    return outcome.stdout


def configured(option):
    """What the build in hand was configured with. The cache of objects then has the wheel's, by the
    very name of the compiler."""
    cache = ROOT / "build" / "release" / "CMakeCache.txt"
    found = re.search(rf"^{option}:\w+=(.*)$", cache.read_text(), re.MULTILINE)
    return f"--config-settings=cmake.define.{option}={found[1] if found else 'OFF'}"


def lend_dependencies(wheel, site):
    """Gives an environment what the wheel declares and this one has, and nothing else."""
    (package,) = metadata.distributions(path=[str(wheel)])
    names = [re.match(r"[\w.-]+", text)[0] for text in package.requires if "extra ==" not in text]
    assert sorted(names) == ["ml_dtypes", "numpy"]
    for name in names:
        for file in {path.parts[0] for path in metadata.files(name) if path.parts[0] != ".."}:
            (site / file).symlink_to(Path(sysconfig.get_path("platlib")) / file)


@pytest.mark.slow
def test_wheel_works_in_an_empty_environment(tmp_path):
    # Nothing is fetched: the build's tools and the dependencies are those at hand.
    pip = ("-m", "pip", "--disable-pip-version-check")
    settings = map(configured, ("CMAKE_CXX_COMPILER", "TESSALINE_WARNINGS_AS_ERRORS"))
    run(sys.executable, *pip, "wheel", "--no-index", "--no-deps", "--no-build-isolation",
        "--wheel-dir", tmp_path, *settings, ROOT)  # fmt: skip
    (wheel,) = tmp_path.glob("tessaline-*.whl")
    environment = tmp_path / "environment"
    run(sys.executable, "-m", "venv", environment)
    python = environment / "bin" / "python"
    lend_dependencies(wheel, next(environment.glob("lib/python*/site-packages")))
    run(python, *pip, "install", "--no-index", wheel)
    variables = {name: text for name, text in os.environ.items() if name != "PYTHONPATH"}
    version, solution = run(
        python, "-c", SCRIPT, cwd=tmp_path, env=variables
    ).split(maxsplit=1)  # fmt: skip
    assert wheel.name.startswith(f"tessaline-{version}-")
    assert solution.strip() == "[1.0, 1.0]"
    told = run(python.with_name("tessaline"), "--version", cwd=tmp_path, env=variables)
    assert told == f"tessaline {version}\n"
