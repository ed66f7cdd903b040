# SPDX-License-Identifier: Apache-2.0
"""Arrays in files, by suffix: .npy, .npz, .csv and .mtx."""

from __future__ import annotations

from collections.abc import Mapping
from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _matrix_market
from ._dtypes import bfloat16, complex32, computed_in

SUFFIXES = (".npy", ".npz", ".csv", ".mtx")


def load(text: str) -> NDArray[Any]:
    """The array of a file. An array of several in an .npz file is named as in ``file.npz:name``.

    Raises ValueError, naming the file, for content that is no array or too large, and OSError.
    """
    name = ""
    if not Path(text).exists() and ".npz:" in text:
        text, _, name = text.rpartition(":")
    path = Path(text)
    suffix = path.suffix.lower()
    if suffix not in SUFFIXES:
        raise ValueError(f"{path}: the suffix is none of {', '.join(SUFFIXES)}")
    with path.open("rb"):
        pass  # so that all formats tell of a missing file in the same way
    try:
        if suffix == ".npz":
            return _load_archive(path, name)
        if suffix == ".mtx":
            return _matrix_market.read(path)
        if suffix == ".csv":
            return _load_csv(path)
        array: NDArray[Any] = np.load(path, allow_pickle=False)
        return array
    except OSError:
        raise
    except MemoryError:
        raise ValueError(f"{path}: announces more numbers than fit into memory") from None
    except Exception as failure:
        # Bytes that are no array make the readers of the formats fail in many ways.
        message = str(failure)
        if not message.startswith(str(path)):
            message = f"{path}: {message}"
        raise ValueError(message) from None


def _load_archive(path: Path, name: str) -> NDArray[Any]:
    with np.load(path, allow_pickle=False) as archive:
        if not isinstance(archive, np.lib.npyio.NpzFile):
            raise ValueError("is no .npz archive")
        names = list(archive)
        if not name and len(names) == 1:
            name = names[0]
        if name not in names:
            raise ValueError(
                f"name one of its arrays, as in {path}:NAME; it holds {', '.join(names) or 'none'}"
            )
        array: NDArray[Any] = archive[name]
        return array


def _load_csv(path: Path) -> NDArray[Any]:
    lines = path.read_text(encoding="utf-8").splitlines()
    if all(line.partition("#")[0].strip() == "" for line in lines):
        raise ValueError("holds no numbers")
    try:
        return np.loadtxt(lines, delimiter=",", ndmin=2)
    except ValueError:
        return np.loadtxt(lines, delimiter=",", ndmin=2, dtype=complex)


def check_target(path: Path, count: int) -> None:
    """Raises ValueError where `count` arrays cannot be saved under a name."""
    suffix = path.suffix.lower()
    if suffix not in SUFFIXES:
        raise ValueError(f"{path}: the suffix is none of {', '.join(SUFFIXES)}")
    if count > 1 and suffix != ".npz":
        raise ValueError(f"{path}: {count} arrays need an .npz file")


def save(path: Path, arrays: Mapping[str, Any]) -> None:
    """Writes named arrays: several into an .npz file, one into any.

    Elements of a dtype that NumPy's formats do not know are widened, which is exact.
    """
    check_target(path, len(arrays))
    plain = {name: _storable(np.asarray(array)) for name, array in arrays.items()}
    suffix = path.suffix.lower()
    if suffix == ".npz":
        np.savez(path, **plain)  # type: ignore[arg-type]
        return
    (array,) = plain.values()
    if suffix == ".npy":
        np.save(path, array)
        return
    # Text formats know numbers only.
    array = array.astype(np.int8) if array.dtype == bool else array
    if suffix == ".mtx":
        _matrix_market.write(path, array)
    else:
        if array.size == 0:
            raise ValueError(f"{path}: a .csv file cannot hold the shape {array.shape}")
        rows = _matrix_market.matrix_of(array).tolist()
        lines = [",".join(_text(value) for value in row) for row in rows]
        path.write_text("".join(f"{line}\n" for line in lines), encoding="ascii")


def _storable(array: NDArray[Any]) -> NDArray[Any]:
    if array.dtype in (bfloat16, complex32):
        return array.astype(computed_in(array.dtype))
    return array


def _text(value: Any) -> str:
    """The shortest text that reads back as the same number."""
    return repr(value).strip("()")
