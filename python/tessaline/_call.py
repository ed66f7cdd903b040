# SPDX-License-Identifier: Apache-2.0
"""One call of an operation: operands made ready, results allocated or checked, the run."""

from __future__ import annotations

from collections.abc import Sequence
from operator import is_
from typing import Any

import numpy as np

from ._context import Context, check_writable, current_context
from ._dtypes import Dtype
from ._operands import Array, make_ready, refuse_mask
from ._signatures import INPUT, OUTPUT, Signature


def check_output(
    name: str, out: Any, shape: tuple[int, ...], dtype: Dtype, label: str = "out"
) -> Array:
    """`out` itself, if a result of this shape and dtype can be written into its memory."""
    if not isinstance(out, np.ndarray):
        raise TypeError(f"{name}: {label} must be a NumPy array, not {type(out).__name__}")
    refuse_mask(name, label, type(out), ".data")
    if out.dtype != dtype:
        raise TypeError(f"{name}: {label} is {out.dtype}, the result is {dtype}")
    if out.shape != shape:
        raise ValueError(f"{name}: {label} has shape {out.shape}, the result has {shape}")
    check_writable(name, label, out)
    return out


def refuse_overlap(
    name: str, out: Array, other: Array, operand: str, in_place: bool = False, label: str = "out"
) -> None:
    """Refuses a result over memory that holds something else, where the package copies it there.

    Where the runtime writes it, the runtime refuses. Everything here is contiguous, so the
    comparison of bounds is exact.
    """
    if np.may_share_memory(out, other):
        same = out.shape == other.shape and out.ctypes.data == other.ctypes.data
        if not (in_place and same):
            raise ValueError(f"{name}: {label} overlaps {operand}")


def outputs_for(
    signature: Signature,
    shapes: Sequence[tuple[int, ...]],
    dtypes: Sequence[Dtype],
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
    outputs = outputs_for(signature, shapes, dtypes, out)
    _run(context, signature, operands, outputs)
    if len(outputs) == 1:
        return outputs[0]
    return tuple([result_of(array, out) for array in outputs])
