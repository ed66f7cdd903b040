# SPDX-License-Identifier: Apache-2.0
"""Operations on vectors.

Every function raises TypeError for dtypes that differ or that nothing computes in, and ValueError
for shapes that do not fit and for an ``out`` that cannot be written in place.
"""

from __future__ import annotations

from collections.abc import Callable
from typing import Any

import numpy as np
from numpy.typing import ArrayLike, DTypeLike

from ._call import call, check_output, function, refuse_overlap
from ._context import Context, current_context
from ._dtypes import component_of, is_complex
from ._operands import Array, make_ready, with_number
from ._signatures import OUTPUT, SIGNATURES

_CONJUGATE = SIGNATURES["conjugate"]
_NORM = SIGNATURES["norm"]


def _with_number(name: str) -> Callable[..., Any]:
    """An operation on a vector and a number."""
    signature = SIGNATURES[name]

    def converted(x: Any, number: Any, out: Any, dtype: Any, context: Any) -> Any:
        operands = with_number(signature, x, number, dtype)
        return call(signature, operands, out=out, context=context)

    return function(name, converted)


def _conjugate(x: Any, out: Any, dtype: Any, context: Any) -> Array:
    context = current_context(context)
    (array,) = make_ready("conjugate", _CONJUGATE.names, (x,), dtype)
    _CONJUGATE.bind((array.shape,))
    if out is None:
        result = array.copy()
    else:
        result = check_output("conjugate", out, array.shape, array.dtype)
        refuse_overlap("conjugate", result, array, "x", in_place=True)
        np.copyto(result, array)
    context._run(_CONJUGATE, {OUTPUT: result})
    return result


def _norm(x: Any, out: Any, dtype: Any, context: Any) -> Any:
    (array,) = make_ready("norm", _NORM.names, (x,), dtype)
    if not is_complex(array.dtype):
        return call(_NORM, (array,), out=out, context=context)
    component = component_of(array.dtype)
    if out is not None:
        check_output("norm", out, (), component)
        refuse_overlap("norm", out, array, "x")
    # The runtime's scalar is complex, with an imaginary part of 0.
    native = np.empty((), array.dtype)
    call(_NORM, (array,), out=native, context=context)
    real = native.reshape(1).view(component)[0]
    if out is None:
        return real
    out[()] = real
    return out


_add = function("add")
_subtract = function("subtract")
_multiply = function("multiply")
_sqrt = function("sqrt")
_conjugated = function("conjugate", _conjugate)
_scale = _with_number("scale")
_divide = _with_number("divide")
_sum = function("sum")
_normed = function("norm", _norm, real_result=True)
_inner = function("inner")
_outer = function("outer")
_equal = function("vector_equal")


def add(
    x: ArrayLike,
    y: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The sum x + y of two vectors of n elements. `out` may be `x` or `y`.

    >>> add(np.array([1, 2], np.float32), np.array([10, 20], np.float32))
    array([11., 22.], dtype=float32)
    """
    return _add(x, y, out, dtype, context)


def subtract(
    x: ArrayLike,
    y: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The difference x - y of two vectors of n elements. `out` may be `x` or `y`.

    >>> subtract([3, 4], [1, 1])
    array([2., 3.])
    """
    return _subtract(x, y, out, dtype, context)


def multiply(
    x: ArrayLike,
    y: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The products x[i] y[i] of two vectors of n elements. `out` may be `x` or `y`.

    >>> multiply([1, 2, 3], [4, 5, 6])
    array([ 4., 10., 18.])
    """
    return _multiply(x, y, out, dtype, context)


def sqrt(
    x: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The square root of each element, NaN for negative reals. `out` may be `x`.

    Complex roots are those of the principal branch: their real part is not negative.

    >>> sqrt([4, 9])
    array([2., 3.])
    """
    return _sqrt(x, out, dtype, context)


def conjugate(
    x: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The complex conjugate of each element, in a new array. `out` may be `x`.

    >>> conjugate([1 + 2j, 3])
    array([1.-2.j, 3.-0.j])
    """
    return _conjugated(x, out, dtype, context)


def scale(
    x: ArrayLike,
    factor: Any,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The vector x times a number. `out` may be `x`.

    The number may be of Python or NumPy and of any precision: it is rounded to the vector's dtype.
    Raises OverflowError for one beyond the range of that dtype, and TypeError for a complex number
    beside a real vector.

    >>> scale(np.array([1, 2], np.float32), 3)
    array([3., 6.], dtype=float32)
    """
    return _scale(x, factor, out, dtype, context)


def divide(
    x: ArrayLike,
    divisor: Any,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The vector x divided by a number, as `scale` takes it. `out` may be `x`.

    Division by zero follows the arithmetic: infinities and NaN, no error.

    >>> divide([1, 2], 4)
    array([0.25, 0.5 ])
    """
    return _divide(x, divisor, out, dtype, context)


def sum(
    x: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Any:
    """The sum of the elements of a vector, in a fixed order. An empty vector gives 0.

    >>> sum([1, 2, 3])
    np.float64(6.0)
    """
    return _sum(x, out, dtype, context)


def norm(
    x: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Any:
    """The Euclidean norm of a vector: a real number, also for complex elements.

    The result of complex64 is a float32, of complex128 a float64, of complex32 a float16. The
    squares of complex64 are summed as they are and may overflow; the other dtypes are scaled.

    >>> norm([3, 4j])
    np.float64(5.0)
    """
    return _normed(x, out, dtype, context)


def inner(
    x: ArrayLike,
    y: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Any:
    """The inner product of two vectors of n elements; the first is conjugated, as in numpy.vdot.

    >>> inner([1j, 2], [1j, 3])
    np.complex128(7+0j)
    """
    return _inner(x, y, out, dtype, context)


def outer(
    x: ArrayLike,
    y: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The m by n matrix of the products x[i] y[j]. Nothing is conjugated.

    >>> outer([1, 2], [3, 4, 5])
    array([[ 3.,  4.,  5.],
           [ 6.,  8., 10.]])
    """
    return _outer(x, y, out, dtype, context)


def vector_equal(
    x: ArrayLike, y: ArrayLike, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> bool:
    """Whether two vectors agree within the tolerances of their dtype.

    Each component of an element is compared alone. ``describe("vector_equal")`` tells the
    tolerances. Vectors of different lengths are not equal, and NaN equals nothing.

    >>> vector_equal([1, 2], [1, 2 + 1e-17])
    True
    >>> vector_equal([1, 2], [1, 2, 3])
    False
    """
    return bool(_equal(x, y, None, dtype, context))
