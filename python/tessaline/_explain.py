# SPDX-License-Identifier: Apache-2.0
"""The part of the functions' documentation that they have in common."""

from __future__ import annotations

from inspect import cleandoc
from textwrap import wrap
from typing import Any

from ._dtypes import INEXACT
from ._signatures import Signature

#: What the arguments mean that functions have in common.
_ARGUMENTS = {
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
    if signature.elementwise or (signature.in_place and signature.names):
        shared = signature.names[-1] if signature.in_place else "an operand"
        overlap = f"It may be the memory of {shared}."
    lines = ["Keyword arguments:"]
    for argument in function.__kwdefaults__:
        text = _ARGUMENTS[argument].format(several=several, overlap=overlap).strip()
        lines += wrap(f"{argument}: {text}", 88, initial_indent="    ", subsequent_indent=" " * 8)
    text, mark, examples = cleandoc(function.__doc__).partition(">>> ")
    function.__doc__ = "\n".join([text.rstrip(), "", *lines, "", mark + examples])
