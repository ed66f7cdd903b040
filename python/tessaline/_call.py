# SPDX-License-Identifier: Apache-2.0
"""One call of an operation: operands made ready, results allocated or checked, the run."""

from __future__ import annotations

import math
from collections.abc import Sequence
from inspect import cleandoc
from numbers import Number
from operator import is_
from textwrap import wrap
from typing import Any

import numpy as np
from numpy.typing import NDArray

from ._context import Context, current_context
from ._dtypes import INEXACT, Dtype, is_complex
from ._signatures import INPUT, OUTPUT, Signature

Array = NDArray[Any]

#: Of an array, and so the depth of lists that stand for one.
_MOST_AXES = 64
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


def _refuse_mask(name: str, operand: str) -> None:
    raise TypeError(
        f"{name}: {operand} is masked, and no operation knows masks; pass {operand}.filled(value)"
    )


def _is_masked(kind: type) -> bool:
    # NumPy loads the module of masked arrays when it is first asked for.
    return (
        kind is not np.ndarray
        and issubclass(kind, np.ndarray)
        and issubclass(kind, np.ma.MaskedArray)
    )


def _holds_masked(values: Any, depth: int) -> bool:
    """Whether a masked array lies in nested sequences, whose conversion drops masks."""
    kinds = set(map(type, values))
    if kinds <= _NUMBERS or not depth:
        return False
    nested = [each for each in values if isinstance(each, (list, tuple))]
    return any(map(_is_masked, kinds)) or any(_holds_masked(each, depth - 1) for each in nested)


def plain_array(name: str, operand: str, value: Any) -> Array:
    """An array of NumPy's own class, over the same memory where `value` is an array.

    Raises TypeError for masked arrays, also inside lists.
    """
    if isinstance(value, (list, tuple)) and _holds_masked(value, _MOST_AXES):
        _refuse_mask(name, operand)
    array = np.asanyarray(value)
    if type(array) is not np.ndarray:
        if _is_masked(type(array)):
            _refuse_mask(name, operand)
        return np.asarray(array)
    return array


def convert(name: str, operand: str, array: Array, dtype: Dtype) -> Array:
    """A C-contiguous, aligned array of native byte order and a given dtype: `array` or a copy.

    Raises TypeError where that would drop an imaginary part or is no number at all.
    """
    if array.dtype != dtype:
        require_fitting(name, operand, array.dtype, dtype)
        array = array.astype(dtype, order="C")
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


def _number_array(name: str, operand: str, value: Any) -> Array:
    """A number of any kind as an array of rank 0, in a dtype that holds it."""
    # NumPy would keep integers beyond 64 bits, fractions and decimal numbers as objects.
    if isinstance(value, int):
        if not -(2**63) <= value < 2**64:
            value = _rounded(name, operand, value)
    elif not isinstance(value, _KNOWN_NUMBERS) and isinstance(value, Number):
        value = _rounded(name, operand, value)
    array = plain_array(name, operand, value)
    if array.shape:
        raise ValueError(f"{name}: {operand} has shape {array.shape}, it must be a single number")
    return array


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
    with np.errstate(over="ignore"):
        stored = array.astype(vector.dtype)
    if not np.isfinite(stored) and np.isfinite(array):
        raise OverflowError(f"{name}: {operand} {number!s} is out of the range of {vector.dtype}")
    return vector, stored


def check_output(
    name: str, out: Any, shape: tuple[int, ...], dtype: Dtype, label: str = "out"
) -> Array:
    """`out` itself, if a result of this shape and dtype can be written into its memory."""
    if not isinstance(out, np.ndarray):
        raise TypeError(f"{name}: {label} must be a NumPy array, not {type(out).__name__}")
    if _is_masked(type(out)):
        raise TypeError(f"{name}: {label} is masked, and no operation knows masks")
    if out.dtype != dtype:
        raise TypeError(f"{name}: {label} is {out.dtype}, the result is {dtype}")
    if out.shape != shape:
        raise ValueError(f"{name}: {label} has shape {out.shape}, the result has {shape}")
    if not out.flags.carray:
        for flag, fault in (
            ("writeable", "is read-only"),
            ("c_contiguous", "is not C-contiguous"),
            ("aligned", "is not aligned"),
        ):
            if not getattr(out.flags, flag):
                raise ValueError(f"{name}: {label} {fault}, so the result cannot be written there")
    return out


def refuse_overlap(
    name: str, out: Array, others: Sequence[Array], elementwise: bool, label: str = "out"
) -> None:
    """Refuses a result in memory that is still to be read.

    Everything here is contiguous, so the comparison of bounds is exact.
    """
    for other in others:
        if np.may_share_memory(out, other):
            same = out.shape == other.shape and out.ctypes.data == other.ctypes.data
            if not (elementwise and same):
                raise ValueError(f"{name}: {label} overlaps an operand of the call")


def outputs_for(
    signature: Signature,
    shapes: Sequence[tuple[int, ...]],
    dtypes: Sequence[Dtype],
    arrays: Sequence[Array],
    out: Any,
) -> list[Array]:
    """The arrays that the results go to: the caller's, or new ones."""
    if out is None:
        return [np.empty(shape, dtype) for shape, dtype in zip(shapes, dtypes)]
    if len(shapes) == 1:
        outs, labels = [out], ["out"]
    else:
        if not isinstance(out, tuple) or len(out) != len(shapes):
            raise TypeError(f"{signature.name}: out must be a tuple of {len(shapes)} arrays")
        outs, labels = list(out), [f"out[{i}]" for i in range(len(out))]
    for i, (array, label) in enumerate(zip(outs, labels)):
        check_output(signature.name, array, shapes[i], dtypes[i], label)
        refuse_overlap(signature.name, array, arrays, signature.elementwise, label)
        refuse_overlap(signature.name, array, outs[:i], False, label)
    return outs


def result_of(array: Array, out: Any) -> Any:
    """What a caller gets: its own `out`, else the array, else the element of an array of rank 0."""
    return array if out is not None or array.shape else array[()]


def _description(signature: Signature, operands: Sequence[Any]) -> tuple[Any, ...] | None:
    """What the results of a call depend on, if its operands are arrays of plain memory.

    They may still be of a foreign byte order, or of dtypes that are not mixed.
    """
    if len(operands) == 2:
        # The usual call, in two thirds of the time of the general form.
        a, b = operands
        if type(a) is np.ndarray is type(b) and a.flags.carray and b.flags.carray:
            return (signature, a.dtype, a.shape, b.dtype, b.shape)
        return None
    description: list[Any] = [signature]
    for operand in operands:
        if type(operand) is not np.ndarray or not operand.flags.carray:
            return None
        description += (operand.dtype, operand.shape)
    return tuple(description)


def _run(
    context: Context, signature: Signature, operands: Sequence[Array], outputs: Sequence[Array]
) -> None:
    if len(operands) == 2 and len(outputs) == 1:
        # The usual call, in a quarter of the time of the general form.
        bindings = {INPUT: operands[0], INPUT + 1: operands[1], OUTPUT: outputs[0]}
    else:
        bindings = dict(zip(signature.locations, (*operands, *outputs)))
    context._run(signature, bindings)


def call(
    signature: Signature,
    operands: Sequence[Any],
    *,
    out: Any = None,
    dtype: Any = None,
    context: Context | None = None,
    **sizes: int,
) -> Any:
    """Runs an operation of plain arrays. `sizes` gives the letters that no operand has.

    A small operation takes less time than the checks of its operands, so that a call like an
    earlier one goes without them.
    """
    context = current_context(context)
    description = _description(signature, operands) if dtype is None and not sizes else None
    known = context._known_results.get(description)
    if known is None:
        arrays = make_ready(signature.name, signature.names, operands, dtype)
        shapes = signature.result_shapes(tuple([array.shape for array in arrays]), **sizes)
        dtypes = context._dtypes_of(signature, tuple([array.dtype for array in arrays]))
        known = (shapes, dtypes)
        if description is not None and all(map(is_, arrays, operands)):
            context._remember_results(description, known)
        operands = arrays
    shapes, dtypes = known
    if out is None and len(shapes) == 1:
        # The usual result, without the general form's lists.
        result = np.empty(shapes[0], dtypes[0])
        _run(context, signature, operands, (result,))
        return result if result.shape else result[()]
    outputs = outputs_for(signature, shapes, dtypes, operands, out)
    _run(context, signature, operands, outputs)
    if len(outputs) == 1:
        return outputs[0]
    return tuple([result_of(array, out) for array in outputs])


#: What the arguments mean that functions have in common.
_COMMON_ARGUMENTS = {
    "out": "where the result is written, and what is returned then: an array of its shape and "
    "dtype, C-contiguous, aligned and writeable{several}. {overlap}",
    "dtype": "converts the operands first: "
    + ", ".join(sorted(str(each) for each in INEXACT))
    + ". Without it arrays keep their dtypes, which have to agree, and Python's numbers and lists "
    "follow the arrays, or become float64 or complex128.",
    "context": "where to run; else the `Context` of the innermost `with` block or the default one.",
}


def explain(function: Any, signature: Signature) -> None:
    """Adds what the common arguments mean to a function's documentation, before its examples."""
    if not function.__doc__:
        return  # an interpreter that keeps no documentation
    several = "; a tuple of them for several results" if len(signature.outputs) > 1 else ""
    overlap = "It must not overlap an operand." if signature.names else ""
    if signature.elementwise or signature.in_place and signature.names:
        shared = signature.names[-1] if signature.in_place else "an operand"
        overlap = f"It may be the memory of {shared}."
    lines = ["Keyword arguments:"]
    for argument in function.__kwdefaults__:
        text = _COMMON_ARGUMENTS[argument].format(several=several, overlap=overlap).strip()
        lines += wrap(f"{argument}: {text}", 88, initial_indent="    ", subsequent_indent=" " * 8)
    text, mark, examples = cleandoc(function.__doc__).partition(">>> ")
    function.__doc__ = "\n".join([text.rstrip(), "", *lines, "", mark + examples])
