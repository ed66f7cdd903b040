# SPDX-License-Identifier: Apache-2.0
"""One call of an operation: operands made ready, results allocated or checked, the run."""

from __future__ import annotations

from collections.abc import Callable, Sequence
from typing import Any

import numpy as np

from ._context import Context, check_writable, current_context, front_door
from ._dtypes import Dtype
from ._operands import Array, make_ready, refuse_mask
from ._signatures import SIGNATURES, Signature


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


def call(
    signature: Signature,
    operands: Sequence[Any],
    *,
    out: Any = None,
    dtype: Any = None,
    context: Context | None = None,
    **sizes: int,
) -> Any:
    """Runs an operation of plain arrays. `sizes` gives the letters that no operand has."""
    context = current_context(context)
    arrays = make_ready(signature.name, signature.names, operands, dtype)
    shapes = signature.result_shapes(tuple([array.shape for array in arrays]), **sizes)
    dtypes = context._dtypes_of(signature, tuple([array.dtype for array in arrays]))
    outputs = outputs_for(signature, shapes, dtypes, out)
    context._run(signature, dict(zip(signature.locations, (*arrays, *outputs))))
    if len(outputs) == 1:
        return result_of(outputs[0], out)
    return tuple([result_of(array, out) for array in outputs])


def function(
    name: str, unusual: Callable[..., Any] | None = None, real_result: bool = False
) -> Callable[..., Any]:
    """The way of a function of the package to its operation.

    It is called by position: operands, a size for each letter that no operand has, `out`, `dtype`
    and `context`. Ordinary arrays of one dtype, with new results or an `out` that fits, are served
    natively. All else is `unusual`'s, which is called alike.
    """
    signature = SIGNATURES[name]

    def converted(*arguments: Any) -> Any:
        *operands, out, dtype, context = arguments
        return call(signature, operands, out=out, dtype=dtype, context=context)

    return front_door.function(signature, unusual or converted, real_result)
