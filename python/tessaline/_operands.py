# SPDX-License-Identifier: Apache-2.0
"""Operands as people give them, made into arrays that the runtime reads in place."""

from __future__ import annotations

import math
from collections import UserList, deque
from collections.abc import Sequence
from numbers import Number
from typing import Any

import numpy as np
from numpy.typing import NDArray

from . import _native
from ._dtypes import INEXACT, Dtype, bfloat16, component_of, computed_in, is_complex
from ._signatures import Signature

Array = NDArray[Any]

#: Of an array, and so the depth of lists that stand for one.
_MOST_AXES = 64
#: What NumPy makes an array of, element by element.
_SEQUENCES = (list, tuple, deque, UserList)
_NUMBERS = frozenset((bool, int, float, complex))
_KNOWN_NUMBERS = (float, complex, np.generic, np.ndarray)
#: What NumPy makes of Python's own numbers: such operands follow the dtype of the others.
_PYTHON_DTYPES = frozenset(np.dtype(kind) for kind in (bool, np.int64, float, complex))


def numeric_dtype(dtype: Any, name: str) -> Dtype:
    """A dtype that arrays of the package may have. Raises TypeError for any other."""
    wanted = np.dtype(dtype)
    if wanted not in INEXACT:
        known = ", ".join(sorted(str(each) for each in INEXACT))
        raise TypeError(f"{name}: dtype {wanted} is none of {known}")
    return wanted


def _is_masked(kind: type) -> bool:
    # NumPy loads the module of masked arrays when it is first asked for.
    return (
        kind is not np.ndarray
        and issubclass(kind, np.ndarray)
        and issubclass(kind, np.ma.MaskedArray)
    )


def refuse_mask(name: str, label: str, kind: type, remedy: str) -> None:
    """Refuses an array of a class that has masks."""
    if _is_masked(kind):
        raise TypeError(
            f"{name}: {label} is masked, and no operation knows masks; pass its {remedy}"
        )


def _holds_masked(values: Any, depth: int) -> bool:
    """Whether a masked array lies in nested sequences, whose conversion drops masks."""
    kinds = set(map(type, values))
    if kinds <= _NUMBERS or not depth:
        return False
    nested = [each for each in values if isinstance(each, _SEQUENCES)]
    return any(map(_is_masked, kinds)) or any(_holds_masked(each, depth - 1) for each in nested)


def plain_array(name: str, operand: str, value: Any) -> Array:
    """An array of NumPy's own class, over the same memory where `value` is an array.

    Raises TypeError for masked arrays, also inside lists.
    """
    if isinstance(value, _SEQUENCES) and _holds_masked(value, _MOST_AXES):
        refuse_mask(name, operand, np.ma.MaskedArray, ".filled(value)")
    array = np.asanyarray(value)
    if type(array) is not np.ndarray:
        refuse_mask(name, operand, type(array), ".filled(value)")
        return np.asarray(array)
    return array


def convert(name: str, operand: str, array: Array, dtype: Dtype) -> Array:
    """A C-contiguous, aligned array of native byte order and a given dtype: `array` or a copy.

    Raises TypeError where that would drop an imaginary part or is no number at all.
    """
    if array.dtype != dtype:
        require_fitting(name, operand, array.dtype, dtype)
        # Rounding and small numbers are those of the operation, not those of the calling thread.
        array = _native._in_default_environment(array.astype, dtype, "C")
    flags = array.flags
    if flags.carray or (flags.c_contiguous and flags.aligned):
        return array
    return np.array(array, dtype=dtype, order="C", copy=True)


def require_fitting(name: str, operand: str, own: Dtype, dtype: Dtype) -> None:
    """Raises TypeError for numbers that `dtype` has no room for, whatever their values."""
    if own.kind not in "biufc" and own.newbyteorder("=") not in INEXACT:
        raise TypeError(f"{name}: {operand} is {own}, which is no numeric dtype")
    if is_complex(own) and not is_complex(dtype):
        raise TypeError(
            f"{name}: {operand} is {own} and does not fit {dtype} without losing its imaginary part"
        )


def make_ready(
    name: str, names: Sequence[str], operands: Sequence[Any], dtype: Any = None
) -> list[Array]:
    """The operands as arrays of one dtype that the runtime can read in place.

    Arrays keep their dtype, and differing dtypes are refused. Python numbers and sequences of
    them take the dtype of the arrays beside them, float64 or complex128 where there is none. An
    explicit `dtype` converts all of them.
    """
    arrays = []
    common: Dtype | None = None
    first = ""
    for operand, value in zip(names, operands):
        if type(value) is np.ndarray:
            arrays.append(value)
            own = value.dtype
        else:
            arrays.append(array := plain_array(name, operand, value))
            own = array.dtype
            if own in _PYTHON_DTYPES and not hasattr(value, "dtype"):
                continue
        if dtype is not None:
            continue
        if own not in INEXACT:
            own = own.newbyteorder("=")
            if own not in INEXACT:
                raise TypeError(
                    f"{name}: {operand} is {own}, which no operation computes in; "
                    "pass dtype= to convert it"
                )
        if common is None:
            common, first = own, operand
        elif own != common:
            raise TypeError(
                f"{name}: {first} is {common} and {operand} is {own}; dtypes are not mixed, "
                "pass dtype= to convert both"
            )
    if dtype is not None:
        common = numeric_dtype(dtype, name)
    elif common is None:
        complex_values = any(is_complex(array.dtype) for array in arrays)
        common = np.dtype(complex if complex_values else float)
    return [convert(name, operand, a, common) for operand, a in zip(names, arrays)]


def _rounded(name: str, operand: str, value: Any) -> float:
    try:
        rounded = float(value)
    except OverflowError:
        rounded = math.inf
    if math.isinf(rounded) and rounded != value:
        raise OverflowError(f"{name}: {operand} is beyond the range of any dtype")
    return rounded


def _is_foreign(value: Any) -> bool:
    """Whether NumPy would keep a number as an object: large integers, fractions, decimals."""
    if isinstance(value, int):
        return not -(2**63) <= value < 2**64
    return not isinstance(value, _KNOWN_NUMBERS) and isinstance(value, Number)


def _number_array(name: str, operand: str, value: Any) -> Array:
    """A number of any kind as an array of rank 0, in a dtype that holds it but for its last bits."""
    if _is_foreign(value):
        value = _native._in_default_environment(_rounded, name, operand, value)
    array = plain_array(name, operand, value)
    if array.shape:
        raise ValueError(f"{name}: {operand} has shape {array.shape}, it must be a single number")
    return array


def _to_odd(value: Any, kind: Any) -> Any:
    """A real number in a floating type, where it is inexact as the neighbour with an odd last bit.

    To round that once more, to a type two bits narrower or more, is to round `value` itself.
    """
    nearest = kind(float(value))
    found = float(nearest)
    if found == value or not math.isfinite(found) or nearest.view(f"i{nearest.itemsize}") & 1:
        return nearest
    return np.nextafter(nearest, kind(math.inf if found < value else -math.inf))


def _rounded_once(exact: Any, dtype: Dtype) -> Array:
    """A number in a dtype of the package, rounded to nearest as if no type lay between."""
    component = component_of(dtype)
    parts = (exact.real, exact.imag) if is_complex(dtype) else (exact,)
    if component.itemsize < 8:
        parts = tuple([_to_odd(part, np.float64) for part in parts])
    if component == bfloat16:
        # Its conversions pass through float32.
        parts = tuple([_to_odd(float(part), np.float32) for part in parts])
    rounded = np.array([float(part) for part in parts]).astype(component)
    return rounded.view(dtype).reshape(())


def _stored(number: Any, array: Array, dtype: Dtype) -> Array:
    """A number, which NumPy makes `array` of, in a dtype of the package."""
    if _is_foreign(number):
        return _rounded_once(number, dtype)
    # NumPy's own conversions to 32 bits and more round once, those to fewer mostly twice.
    if component_of(dtype).itemsize > 2:
        return array.astype(dtype)
    wide = array.astype(computed_in(array.dtype)) if array.dtype in INEXACT else array
    return _rounded_once(wide.item(), dtype)


def with_number(signature: Signature, x: Any, number: Any, dtype: Any) -> tuple[Array, Array]:
    """A vector, and a number that follows the vector's dtype, whatever kind of number it is.

    Raises TypeError for a complex number beside a real vector, and OverflowError for a finite one
    beyond the range of the dtype.
    """
    name, operand = signature.name, signature.names[1]
    array = _number_array(name, operand, number)
    if dtype is None and type(x) is np.ndarray and x.dtype in INEXACT:
        vector = x
    else:
        # One untyped number stands in for the other, and makes an untyped vector complex.
        untyped = dtype is None and not hasattr(x, "dtype")
        like = 0j if untyped and is_complex(array.dtype) else 0.0
        vector, _ = make_ready(name, signature.names, (x, like), dtype)
    if array.dtype == vector.dtype:
        return vector, array
    require_fitting(name, operand, array.dtype, vector.dtype)
    with np.errstate(over="ignore", under="ignore"):
        stored = _native._in_default_environment(_stored, number, array, vector.dtype)
    if not np.isfinite(stored) and np.isfinite(array):
        raise OverflowError(f"{name}: {operand} {number!s} is out of the range of {vector.dtype}")
    return vector, stored
