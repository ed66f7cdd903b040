# SPDX-License-Identifier: Apache-2.0
"""The package as it is imported."""

import re
import subprocess
from pathlib import Path

import numpy as np
import pytest
import tessaline
from tessaline import _dtypes, _native

ROOT = Path(__file__).resolve().parents[2]


def test_version_is_the_one_of_the_build() -> None:
    text = (ROOT / "CMakeLists.txt").read_text()
    assert tessaline.__version__ == re.search(r"project\(Tessaline VERSION (\S+)", text)[1]


def test_native_error_is_a_runtime_error() -> None:
    assert tessaline.NativeError is _native.NativeError
    assert issubclass(tessaline.NativeError, RuntimeError)


def test_complex32_holds_two_halves_real_part_first() -> None:
    array = np.array([1 + 2j, -0.5j]).astype(_dtypes.complex32)
    assert array.dtype == _dtypes.complex32 and array.dtype.isnative
    halves = array.view(np.float16)
    assert halves.tolist() == [1, 2, 0, -0.5]
    assert array.astype(np.complex64).tolist() == [1 + 2j, -0.5j]


def test_module_exports_its_entry_and_the_namespace_only() -> None:
    symbols = subprocess.run(
        ["nm", "--dynamic", "--defined-only", "--format=posix", _native.__file__],
        stdout=subprocess.PIPE,
        text=True,
        check=True,
    ).stdout.splitlines()
    names = {line.split()[0] for line in symbols}
    assert "PyInit__native" in names
    assert any("Tessaline11OperationId5parse" in name for name in names)
    others = {name for name in names - {"PyInit__native"} if "9Tessaline" not in name}
    assert not others


def test_published_types_are_those_of_the_module():
    """`make stubs` renews the package's copy."""
    built = Path(_native.__file__).parent.parent / "stubs" / "_native.pyi"
    if not built.exists():
        pytest.skip("an installed package has no stubs of its own build")
    packaged = Path(tessaline.__file__).with_name("_native.pyi")
    assert packaged.read_text() == built.read_text()
