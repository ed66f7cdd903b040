# SPDX-License-Identifier: Apache-2.0
"""Matrix Market files: dense and coordinate form to and from dense arrays."""

from __future__ import annotations

from pathlib import Path
from typing import Any

import numpy as np
from numpy.typing import NDArray

_BANNER = "%%MatrixMarket matrix"
_FIELDS = {"real": 1, "integer": 1, "complex": 2, "pattern": 0}
#: Of a size; Python itself reads some thousands at most.
_MOST_DIGITS = 100
_SYMMETRIES = ("general", "symmetric", "skew-symmetric", "hermitian")


def read(path: Path) -> NDArray[Any]:
    """The matrix of a file, with the other half of a symmetric one filled in.

    Raises ValueError, naming the file, for one that is not in the format.
    """
    try:
        return _parsed(path.read_text(encoding="latin-1"))
    except ValueError as failure:
        raise ValueError(f"{path}: {failure}") from None


def _parsed(text: str) -> NDArray[Any]:
    first, _, rest = text.partition("\n")
    banner = first.lower().split()
    if banner[:2] != _BANNER.lower().split() or len(banner) != 5:
        raise ValueError("no Matrix Market matrix: the first line is no banner")
    form, field, symmetry = banner[2:]
    known = form in ("array", "coordinate") and field in _FIELDS and symmetry in _SYMMETRIES
    if not known or (form == "array" and field == "pattern"):
        raise ValueError(f"Matrix Market form '{' '.join(banner[2:])}' is not known")
    words = " ".join(line for line in rest.splitlines() if not line.startswith("%")).split()
    sizes = _sizes(words[: 2 + (form == "coordinate")], form)
    if symmetry != "general" and sizes[0] != sizes[1]:
        raise ValueError(f"a {symmetry} matrix has to be square")
    values = _values(words[len(sizes) :])
    matrix = _FORMS[form](values, sizes, _FIELDS[field], symmetry)
    return _mirrored(matrix, symmetry)


def _sizes(words: list[str], form: str) -> list[int]:
    if len(words) < 2 + (form == "coordinate"):
        raise ValueError("ends before the line of sizes is complete")
    for word in words:
        if not word.isdecimal():
            raise ValueError(f"the size '{word}' is no whole number")
        if len(word) > _MOST_DIGITS:
            raise ValueError(f"a size of {len(word)} digits does not fit into memory")
    return [int(word) for word in words]


def _values(words: list[str]) -> NDArray[np.float64]:
    try:
        if not any("_" in word for word in words):
            return np.array(words, np.float64)
    except ValueError:
        pass
    wrong = next(word for word in words if not _is_number(word))
    raise ValueError(f"'{wrong}' is no number")


def _is_number(word: str) -> bool:
    try:
        float(word)
    except ValueError:
        return False
    return "_" not in word  # which Python's numbers may have between digits


def _numbers(values: NDArray[np.float64], parts: int) -> NDArray[Any]:
    """One number a row from rows of that many parts."""
    if parts == 0:
        return np.ones(len(values))
    # Parts side by side are complex numbers; arithmetic would make NaN of an infinite part.
    return values[:, 0] if parts == 1 else np.ascontiguousarray(values).view(complex)[:, 0]


def _zeros(rows: int, columns: int, dtype: Any) -> NDArray[Any]:
    try:
        return np.zeros((rows, columns), dtype)
    except (MemoryError, ValueError):
        raise ValueError(f"a dense {rows} by {columns} matrix does not fit into memory") from None


def _from_coordinates(
    values: NDArray[np.float64], sizes: list[int], parts: int, symmetry: str
) -> NDArray[Any]:
    rows, columns, count = sizes
    if len(values) != count * (2 + parts):
        raise ValueError(f"holds {len(values)} numbers, {count} entries were announced")
    entries = values.reshape(count, 2 + parts)
    places = entries[:, :2].T
    inside = (places >= 1) & (places <= np.array([[rows], [columns]]))
    if not (inside & (places == np.floor(places))).all():
        raise ValueError(f"an entry has no place in the {rows} by {columns} matrix")
    if symmetry != "general" and (places[0] < places[1] + (symmetry == "skew-symmetric")).any():
        raise ValueError(f"an entry lies outside of the stored half of a {symmetry} matrix")
    numbers = _numbers(entries[:, 2:], parts)
    matrix = _zeros(rows, columns, numbers.dtype)
    np.add.at(matrix, tuple(places.astype(np.int64) - 1), numbers)
    return matrix


def _from_columns(
    values: NDArray[np.float64], sizes: list[int], parts: int, symmetry: str
) -> NDArray[Any]:
    rows, columns = sizes
    diagonal = int(symmetry == "skew-symmetric")
    half = rows * (rows + 1) // 2 - diagonal * rows
    expected = (rows * columns if symmetry == "general" else half) * parts
    if len(values) != expected:
        raise ValueError(f"holds {len(values)} numbers, {expected} belong there")
    numbers = _numbers(values.reshape(-1, parts), parts)
    if symmetry == "general":
        return numbers.reshape(columns, rows).T.copy()
    transposed = np.zeros((columns, rows), numbers.dtype)
    transposed[np.triu_indices(rows, k=diagonal)] = numbers
    return transposed.T.copy()


_FORMS = {"coordinate": _from_coordinates, "array": _from_columns}


def _mirrored(matrix: NDArray[Any], symmetry: str) -> NDArray[Any]:
    if symmetry == "general":
        return matrix
    lower = np.tril(matrix, -1).T
    if symmetry == "hermitian":
        lower = lower.conj()
    return matrix - lower if symmetry == "skew-symmetric" else matrix + lower


def matrix_of(array: NDArray[Any]) -> NDArray[Any]:
    """A matrix as it is, a vector as one column, a number as a matrix of order 1."""
    return array if array.ndim == 2 else array.reshape(-1, 1)


def write(path: Path, array: NDArray[Any]) -> None:
    """Writes a matrix, or a vector as one column, in dense form."""
    matrix = matrix_of(array)
    complex_values = matrix.dtype.kind == "c"
    with path.open("w", encoding="ascii") as lines:
        lines.write(f"{_BANNER} array {'complex' if complex_values else 'real'} general\n")
        lines.write(f"{matrix.shape[0]} {matrix.shape[1]}\n")
        for value in matrix.T.ravel().tolist():
            lines.write(f"{value.real!r} {value.imag!r}\n" if complex_values else f"{value!r}\n")
