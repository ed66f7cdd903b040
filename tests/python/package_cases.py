# SPDX-License-Identifier: Apache-2.0
"""Operands of every function, and what NumPy makes of them in double precision."""

from collections.abc import Callable
from typing import Any, NamedTuple

import ml_dtypes
import numpy as np
import tessaline
from numpy.typing import NDArray

DTYPES = sorted(tessaline._dtypes.INEXACT, key=str)
Array = NDArray[Any]


def is_complex(dtype: np.dtype[Any]) -> bool:
    return dtype == tessaline.complex32 or dtype.kind == "c"


def _limits(dtype: np.dtype[Any]) -> Any:
    return ml_dtypes.finfo(np.float16 if dtype == tessaline.complex32 else dtype)


def eps(dtype: np.dtype[Any]) -> float:
    return float(_limits(dtype).eps)


def least(dtype: np.dtype[Any]) -> float:
    """The smallest positive number of a dtype's components."""
    return float(_limits(dtype).smallest_subnormal)


def wide(array: Any) -> Array:
    """The same values in float64 or complex128, which is exact."""
    array = np.asarray(array)
    return array.astype(np.complex128 if is_complex(array.dtype) else np.float64)


def values(shape: tuple[int, ...], dtype: np.dtype[Any], seed: int = 0) -> Array:
    """Numbers between -1 and 1 that the dtype holds."""
    random = np.random.Generator(np.random.Philox(seed))
    array = random.uniform(-1, 1, shape)
    if is_complex(dtype):
        array = array + 1j * random.uniform(-1, 1, shape)
    return array.astype(dtype)


def strong(n: int, dtype: np.dtype[Any], seed: int = 0) -> Array:
    """A Hermitian, diagonally dominant and so positive definite matrix, well conditioned."""
    a = wide(values((n, n), dtype, seed))
    return ((a + a.conj().T) / (4 * n) + np.diag(np.arange(1, n + 1))).astype(dtype)


class Case(NamedTuple):
    """A function, its operands for a size, the reference and its error bound.

    The bound of an element is ``factor(n) * eps * magnitude``, where `magnitude` is the reference
    of the operands' absolute values: what rounding errors of the sums are proportional to.
    """

    name: str
    operands: Callable[[int, np.dtype[Any]], tuple[Any, ...]]
    reference: Callable[..., Any]
    factor: Callable[[int], float] = lambda n: 2
    magnitude: Callable[..., Any] | None = None


def _two(n: int, d: Any) -> tuple[Any, ...]:
    return values((n,), d, 1), values((n,), d, 2)


def _square(n: int, d: Any) -> tuple[Any, ...]:
    return (values((n, n), d, 3),)


def _partial(n: int, d: Any) -> tuple[Any, ...]:
    return values((3 * n, 3 * n), d, 4), n


def _left(a: Array, m: int) -> Array:
    k = len(a) // m
    return np.einsum("titj->ij", a.reshape(k, m, k, m))


def _right(a: Array, m: int) -> Array:
    k = len(a) // m
    return np.einsum("itjt->ij", a.reshape(m, k, m, k))


def _tall(n: int, d: Any) -> tuple[Any, ...]:
    return (values((n, n + 2), d, 3),)


# A complex operation rounds a few times where a real one rounds once: hence 8 and not 1 or 2.
CASES = [
    Case("add", _two, np.add),
    Case("subtract", _two, np.subtract, magnitude=np.add),
    Case("multiply", _two, np.multiply, lambda n: 8),
    Case("sqrt", lambda n, d: (abs(wide(values((n,), d, 1))).astype(d),), np.sqrt, lambda n: 8),
    Case("conjugate", lambda n, d: (values((n,), d, 1),), np.conjugate, lambda n: 0),
    Case("scale", lambda n, d: (values((n,), d, 1), values((), d, 2)), np.multiply, lambda n: 8),
    Case("divide", lambda n, d: (values((n,), d, 1), 4), np.divide, lambda n: 8),
    Case("sum", lambda n, d: (values((n,), d, 1),), np.sum, lambda n: n + 2),
    Case("norm", lambda n, d: (values((n,), d, 1),), np.linalg.norm, lambda n: 4 * n + 8),
    Case("inner", _two, np.vdot, lambda n: 8 * n + 8),
    Case("outer", lambda n, d: (values((n,), d, 1), values((n + 1,), d, 2)), np.outer, lambda n: 8),
    Case("transpose", _tall, np.transpose, lambda n: 0),
    Case("adjoint", _tall, lambda a: a.conj().T, lambda n: 0),
    Case(
        "matmul",
        lambda n, d: (*_tall(n, d), values((n + 2, 3), d, 5)),
        np.matmul,
        lambda n: 8 * n + 24,
    ),
    Case(
        "matvec",
        lambda n, d: (*_tall(n, d), values((n + 2,), d, 5)),
        np.matmul,
        lambda n: 8 * n + 24,
    ),
    Case("kron", lambda n, d: (values((n, 2), d, 1), values((3, n), d, 2)), np.kron, lambda n: 8),
    Case("trace", _tall, np.trace, lambda n: n + 2),
    Case("partial_trace_left", _partial, _left, lambda n: 8),
    Case("partial_trace_right", _partial, _right, lambda n: 8),
    Case(
        "matrix_power",
        lambda n, d: (*_square(n, d), 3),
        np.linalg.matrix_power,
        lambda n: 3 * (8 * n + 8),
    ),
    Case("eye", lambda n, d: (n, d), lambda n, d: np.eye(n), lambda n: 0),
]
