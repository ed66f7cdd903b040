# SPDX-License-Identifier: Apache-2.0
"""Matrix Market files: dense and coordinate form to and from dense arrays."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import NDArray

_BANNER = "%%MatrixMarket matrix"
_FIELDS = {"real": 1, "integer": 1, "complex": 2, "pattern": 0}
_SYMMETRIES = ("general", "symmetric", "skew-symmetric", "hermitian")


def read(path: Path) -> NDArray[Any]:
    """The matrix of a file, with the other half of a symmetric one filled in.

    Raises ValueError for a file that is not in the format.
    """
    with path.open(encoding="ascii") as lines:
        banner = lines.readline().lower().split()
        if banner[:2] != _BANNER.lower().split() or len(banner) != 5:
            raise ValueError(f"{path}: no Matrix Market matrix: the first line is no banner")
        form, field, symmetry = banner[2:]
        known = form in ("array", "coordinate") and field in _FIELDS and symmetry in _SYMMETRIES
        if not known or (form == "array" and field == "pattern"):
            raise ValueError(f"{path}: Matrix Market form '{' '.join(banner[2:])}' is not known")
        words = " ".join(line for line in lines if not line.startswith("%")).split()
    try:
        sizes = [int(word) for word in words[: 2 + (form == "coordinate")]]
        values = np.array(words[len(sizes) :], np.float64)
        rows, columns = sizes[:2]
    except ValueError as failure:
        raise ValueError(f"{path}: {failure}") from None
    if symmetry != "general" and rows != columns:
        raise ValueError(f"{path}: a {symmetry} matrix has to be square")
    if form == "coordinate":
        matrix = _from_coordinates(path, values, sizes, _FIELDS[field])
    else:
        matrix = _from_columns(path, values, (rows, columns), _FIELDS[field], symmetry)
    return _mirrored(matrix, symmetry)


def _numbers(values: NDArray[np.float64], parts: int) -> NDArray[Any]:
    """One number a row from rows of that many parts."""
    if parts == 0:
        return np.ones(len(values))
    return values[:, 0] if parts == 1 else values[:, 0] + 1j * values[:, 1]


def _from_coordinates(
    path: Path, values: NDArray[np.float64], sizes: list[int], parts: int
) -> NDArray[Any]:
    rows, columns, count = sizes
    if len(values) != count * (2 + parts):
        raise ValueError(f"{path}: holds {len(values)} numbers, {count} entries were announced")
    entries = values.reshape(count, 2 + parts)
    places = entries[:, :2].astype(np.int64) - 1
    if count and (places.min() < 0 or (places.max(axis=0) >= (rows, columns)).any()):
        raise ValueError(f"{path}: an entry lies outside of the {rows} by {columns} matrix")
    numbers = _numbers(entries[:, 2:], parts)
    matrix = np.zeros((rows, columns), numbers.dtype)
    np.add.at(matrix, (places[:, 0], places[:, 1]), numbers)
    return matrix


def _from_columns(
    path: Path, values: NDArray[np.float64], shape: tuple[int, int], parts: int, symmetry: str
) -> NDArray[Any]:
    rows, columns = shape
    stored = np.ones((columns, rows), bool)
    if symmetry != "general":
        stored = np.triu(stored, k=int(symmetry == "skew-symmetric"))
    expected = stored.sum() * parts
    if len(values) != expected:
        raise ValueError(f"{path}: holds {len(values)} numbers, {expected} belong there")
    numbers = _numbers(values.reshape(-1, parts), parts)
    transposed = np.zeros((columns, rows), numbers.dtype)
    transposed[stored] = numbers
    return transposed.T.copy()


def _mirrored(matrix: NDArray[Any], symmetry: str) -> NDArray[Any]:
    if symmetry == "general":
        return matrix
    lower = np.tril(matrix, -1).T
    if symmetry == "hermitian":
        lower = lower.conj()
    return matrix - lower if symmetry == "skew-symmetric" else matrix + lower


def write(path: Path, array: NDArray[Any]) -> None:
    """Writes a matrix, or a vector as one column, in dense form."""
    matrix = array.reshape(len(array), -1) if array.ndim else array.reshape(1, 1)
    complex_values = matrix.dtype.kind == "c"
    with path.open("w", encoding="ascii") as lines:
        lines.write(f"{_BANNER} array {'complex' if complex_values else 'real'} general\n")
        lines.write(f"{matrix.shape[0]} {matrix.shape[1]}\n")
        for value in matrix.T.ravel().tolist():
            lines.write(f"{value.real!r} {value.imag!r}\n" if complex_values else f"{value!r}\n")
