# SPDX-License-Identifier: Apache-2.0
"""How far two results of one calculation are from each other.

An error is that of the worst element, so that one wrong element among millions is seen. Where a
calculation has several right answers, each answer is set against what defines it.
"""

from __future__ import annotations

from collections.abc import Mapping
from typing import Any

import numpy as np
import tessaline

Operands = Mapping[str, Any]


def wide(value: Any) -> np.ndarray[Any, Any]:
    array = np.asarray(value)
    is_complex = array.dtype.kind == "c" or array.dtype == tessaline.complex32
    return array.astype(np.complex128 if is_complex else np.float64)


def of_elements(found: Any, expected: Any, _: Operands) -> float:
    """Each set against its own counterpart."""
    found, expected = wide(found), wide(expected)
    if found.shape != expected.shape:
        return np.inf
    parted = found != expected
    with np.errstate(divide="ignore"):
        errors = np.abs(found[parted] - expected[parted]) / np.abs(expected[parted])
    return float(errors.max(initial=0))


def relative(found: Any, expected: Any, _: Operands | None = None) -> float:
    """Each set against the root mean square of all: sums may cancel in some elements."""
    found, expected = wide(found), wide(expected)
    if found.shape != expected.shape:
        return np.inf
    size = np.linalg.norm(expected) / np.sqrt(expected.size)
    return float(np.max(np.abs(found - expected)) / size)


def both_true(found: Any, expected: Any, _: Operands) -> float:
    return 0.0 if found is True and bool(expected) else np.inf


def of_factors(found: Any, expected: Any, operands: Operands) -> float:
    """Of the matrix that is got back from factors; pivots may differ where candidates are near."""
    return max(relative(_multiplied(each), operands["a"]) for each in (found, expected))


def _multiplied(factors: Any) -> np.ndarray[Any, Any]:
    if isinstance(factors, tessaline.LUFactor):
        factors = factors.factors, factors.pivots
    lu, pivots = wide(factors[0]), factors[1]
    product = (np.tril(lu, -1) + np.eye(len(lu))) @ np.triu(lu)
    for k in reversed(range(len(pivots))):
        product[[k, pivots[k]]] = product[[pivots[k], k]]
    return product


def of_solutions(found: Any, expected: Any, operands: Operands) -> float:
    """Of residuals, which do not depend on the condition of the matrix as solutions do."""
    a, b = wide(operands["a"]), wide(operands["b"])
    return max(_residual(a, wide(x), b) for x in (found, expected))


def _residual(a: Any, x: Any, b: Any) -> float:
    if x.shape != b.shape:
        return np.inf
    sizes = np.linalg.norm(a, axis=1).max() * np.linalg.norm(x, axis=0)
    return float(np.max(np.abs(a @ x - b) / sizes))


def of_logarithms(found: Any, expected: Any, _: Operands) -> float:
    """Of the greater error of sign and logarithm."""
    (sign, log), (expected_sign, expected_log) = map(_sign_and_logarithm, (found, expected))
    return max(abs(sign - expected_sign), abs(log - expected_log) / max(1.0, abs(expected_log)))


def _sign_and_logarithm(result: Any) -> tuple[complex, float]:
    if isinstance(result, tuple):
        return complex(result[0]), float(result[1])
    value = complex(result)
    return complex(np.exp(1j * value.imag)), value.real


def of_eigh(found: Any, expected: Any, operands: Operands) -> float:
    a = wide(operands["a"])
    vectors = wide(found[1])
    return max(
        relative(found[0], expected[0]),
        relative(vectors * wide(found[0]) @ vectors.conj().T, a),
        float(np.max(np.abs(vectors.conj().T @ vectors - np.eye(len(a))))),
    )


def of_eig(found: Any, expected: Any, operands: Operands) -> float:
    """Of residuals and lengths, and of the sum of the values, since one pair told twice would
    have no residual either."""
    a = wide(operands["a"])
    values, vectors = wide(found[0]), wide(found[1])
    scale = np.linalg.norm(a)
    return float(
        max(
            np.linalg.norm(a @ vectors - vectors * values) / scale,
            np.max(np.abs(np.linalg.norm(vectors, axis=0) - 1)),
            abs(values.sum() - wide(expected[0]).sum()) / scale,
        )
    )


def up_to_phase(found: Any, expected: Any, _: Operands) -> float:
    found, expected = wide(found), wide(expected)
    turn = np.vdot(found, expected)
    return relative(found * turn / abs(turn), expected)
