# SPDX-License-Identifier: Apache-2.0
"""Products, transposes and traces of matrices.

An `out` must not overlap an operand: all elements of the operands are needed until the last result
is written.
"""

from __future__ import annotations

import operator
from collections.abc import Callable
from typing import Any, SupportsIndex

import numpy as np
from numpy.typing import ArrayLike, DTypeLike

from ._call import call, check_output, function, outputs_for, refuse_overlap
from ._context import Context, current_context
from ._dtypes import computed_in
from ._operands import Array, make_ready, numeric_dtype
from ._signatures import INPUT, OUTPUT, SIGNATURES

_POWER = SIGNATURES["matrix_power"]
_EYE = SIGNATURES["eye"]

#: The runtime reads exponents as signed integers of 32 bits.
_EXPONENT_LIMIT = 2**31 - 1
#: Of larger exponents: a power of two that the runtime reads, so that its square is one product.
_DIGIT_BITS = 30


def _partial_trace(name: str) -> Callable[..., Any]:
    signature = SIGNATURES[name]

    def converted(a: Any, order: SupportsIndex, out: Any, dtype: Any, context: Any) -> Any:
        (array,) = make_ready(name, signature.names, (a,), dtype)
        sizes = signature.bind((array.shape,))
        kept = operator.index(order)
        if kept < 1 or sizes["n"] % kept:
            raise ValueError(
                f"{name}: the order {kept} of the result must divide that of a, {sizes['n']}"
            )
        return call(signature, (array,), out=out, context=context, m=kept)

    return function(name, converted)


_transpose = function("transpose")
_adjoint = function("adjoint")
_matmul = function("matmul")
_matvec = function("matvec")
_kron = function("kron")
_trace = function("trace")
_left = _partial_trace("partial_trace_left")
_right = _partial_trace("partial_trace_right")
_unitary = function("is_unitary")


def transpose(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The n by m transpose of an m by n matrix: a new array, not a view.

    >>> transpose([[1, 2, 3]])
    array([[1.],
           [2.],
           [3.]])
    """
    return _transpose(a, out, dtype, context)


def adjoint(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The conjugate transpose, n by m, of an m by n matrix.

    >>> adjoint([[1j, 2]])
    array([[0.-1.j],
           [2.-0.j]])
    """
    return _adjoint(a, out, dtype, context)


def matmul(
    a: ArrayLike,
    b: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The product of an m by k and a k by n matrix. `matvec` multiplies with a vector.

    Each element is summed in the order of k, so the bits do not depend on the number of threads.

    >>> matmul([[1, 2], [3, 4]], [[0, 1], [1, 0]])
    array([[2., 1.],
           [4., 3.]])
    """
    return _matmul(a, b, out, dtype, context)


def matvec(
    a: ArrayLike,
    x: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The product of an m by n matrix and a vector of n elements.

    >>> matvec([[1, 2], [3, 4]], [1, 1])
    array([3., 7.])
    """
    return _matvec(a, x, out, dtype, context)


def kron(
    a: ArrayLike,
    b: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The Kronecker product of an m by n and a p by q matrix, of shape (m p, n q).

    >>> kron([[1, 2]], [[1], [10]])
    array([[ 1.,  2.],
           [10., 20.]])
    """
    return _kron(a, b, out, dtype, context)


def trace(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Any:
    """The sum of the diagonal of a matrix, which need not be square.

    >>> trace([[1, 2], [3, 4]])
    np.float64(5.0)
    """
    return _trace(a, out, dtype, context)


def partial_trace_left(
    a: ArrayLike,
    order: SupportsIndex,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """Traces the left factor out of a matrix on a product of two spaces.

    `a` is n by n, and the result, of the right factor's `order` m, is the sum of the n / m
    diagonal blocks of `a`. So ``partial_trace_left(kron(b, c), len(c))`` is trace(b) times c.
    Raises ValueError where m does not divide n.

    >>> partial_trace_left(kron([[1, 2], [3, 4]], [[1, 0], [7, 1]]), 2)
    array([[ 5.,  0.],
           [35.,  5.]])
    """
    return _left(a, order, out, dtype, context)


def partial_trace_right(
    a: ArrayLike,
    order: SupportsIndex,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """Traces the right factor out of a matrix on a product of two spaces.

    `a` is n by n, and element (i, j) of the result, of the left factor's `order` m, is the trace
    of block (i, j) of `a`. So ``partial_trace_right(kron(b, c), len(b))`` is b times trace(c).
    Raises ValueError where m does not divide n.

    >>> partial_trace_right(kron([[1, 2], [3, 4]], [[1, 0], [7, 1]]), 2)
    array([[2., 4.],
           [6., 8.]])
    """
    return _right(a, order, out, dtype, context)


def matrix_power(
    a: ArrayLike,
    exponent: SupportsIndex,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The n by n matrix `a` to an integer power that is not negative, by repeated squaring.

    Exponents from 2**31 on are split into digits of 30 bits, lowest first, and the result is the
    product, from left to right, of the powers that belong to the digits. Operands of 16 bits, and
    complex32, are then multiplied in compute precision and rounded once. Elements that leave the
    range become infinities and NaN. Raises ValueError for a negative exponent.

    >>> matrix_power([[1, 1], [0, 1]], 10)
    array([[ 1., 10.],
           [ 0.,  1.]])
    """
    context = current_context(context)
    (array,) = make_ready("matrix_power", _POWER.names[:1], (a,), dtype)
    power = operator.index(exponent)
    if power < 0:
        raise ValueError("matrix_power: the exponent is negative; solve with an identity")
    shapes = _POWER.result_shapes((array.shape, ()))
    (result,) = outputs_for(_POWER, shapes, (array.dtype,), out)
    if power <= _EXPONENT_LIMIT:
        _native_power(context, array, power, result)
    else:
        refuse_overlap("matrix_power", result, array, "a")
        with np.errstate(over="ignore"):
            result[...] = _large_power(context, array, power)
    return result


def _native_power(context: Context, array: Array, power: int, result: Array) -> Array:
    count = np.array(power, np.int32)
    context._run(_POWER, {INPUT: array, INPUT + 1: count, OUTPUT: result})
    return result


def _large_power(context: Context, array: Array, power: int) -> Array:
    """The power in compute precision; `base` is the matrix to the weight of the digit in turn."""
    base = array.astype(computed_in(array.dtype))
    result: Array | None = None
    while True:
        power, digit = divmod(power, 1 << _DIGIT_BITS)
        if digit:
            factor = _native_power(context, base, digit, np.empty_like(base))
            result = factor if result is None else matmul(result, factor, context=context)
        if not power:
            assert result is not None
            return result
        base = _native_power(context, base, 1 << _DIGIT_BITS, np.empty_like(base))


def is_unitary(
    a: ArrayLike, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> bool:
    """Whether the product of a matrix and its adjoint is the identity, within tolerances.

    ``describe("is_unitary")`` tells the tolerances. A matrix that is not square is not unitary.

    >>> is_unitary([[0, 1j], [1, 0]])
    True
    """
    return bool(_unitary(a, None, dtype, context))


def eye(
    n: SupportsIndex,
    dtype: DTypeLike = np.float64,
    *,
    out: Array | None = None,
    context: Context | None = None,
) -> Array:
    """The identity matrix of order n.

    >>> eye(2, np.float32)
    array([[1., 0.],
           [0., 1.]], dtype=float32)
    """
    context = current_context(context)
    order = operator.index(n)
    if order < 0:
        raise ValueError(f"eye: the order {order} is negative")
    wanted = numeric_dtype(dtype, "eye")
    if out is None:
        result = np.empty((order, order), wanted)
    else:
        result = check_output("eye", out, (order, order), wanted)
    context._run(_EYE, {OUTPUT: result})
    return result
