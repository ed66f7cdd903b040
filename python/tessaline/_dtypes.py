# SPDX-License-Identifier: Apache-2.0
"""Element types: those that NumPy itself does not have, and the words that name all of them."""

from __future__ import annotations

from typing import Any

import ml_dtypes
import numpy

from . import _native

#: A complex number of two float16 components, real part first, four bytes in all.
complex32 = numpy.dtype(ml_dtypes.complex32)
#: The upper half of a float32.
bfloat16 = numpy.dtype(ml_dtypes.bfloat16)

Dtype = numpy.dtype[Any]

_OTHERS = {"complex32": complex32, "bfloat16": bfloat16}


def from_word(word: str) -> Dtype:
    """The NumPy dtype of a word of the catalogue."""
    return _OTHERS[word] if word in _OTHERS else numpy.dtype(word)


#: The word of each dtype that arrays may have, and of the dtype that it is computed in.
WORDS: dict[Dtype, tuple[str, str]] = {
    from_word(policy["dtype"]): (policy["dtype"], policy["compute_dtype"])
    for policy in _native.numeric_policies()
}

#: The dtypes of matrices and vectors. Integers occur as scalars only.
INEXACT: frozenset[Dtype] = frozenset(dtype for dtype in WORDS if dtype.kind != "i")


def is_complex(dtype: Dtype) -> bool:
    return dtype == complex32 or dtype.kind == "c"


def computed_in(dtype: Dtype) -> Dtype:
    """The dtype that arithmetic on `dtype` runs in."""
    return from_word(WORDS[dtype][1])


_COMPONENTS: dict[Dtype, Dtype] = {
    complex32: numpy.dtype(numpy.float16),
    numpy.dtype(numpy.complex64): numpy.dtype(numpy.float32),
    numpy.dtype(numpy.complex128): numpy.dtype(numpy.float64),
}


def component_of(dtype: Dtype) -> Dtype:
    """The dtype of the real part: `dtype` itself where it is real."""
    return _COMPONENTS.get(dtype, dtype)
