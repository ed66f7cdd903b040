# SPDX-License-Identifier: Apache-2.0
"""Typed dense linear algebra with published numerics.

Arrays in, arrays out: each function is one operation of the catalogue and runs on the current
`Context`. Dtypes are never promoted, sums have a fixed order, and ``describe("matmul")`` tells how
a result is computed.

>>> import numpy as np, tessaline
>>> tessaline.matvec(np.eye(2), np.array([1.0, 2.0]))
array([1., 2.])
"""

from pathlib import Path as _Path

from . import _native
from ._catalogue import Description, describe, operations
from ._context import Context
from ._decompositions import (
    EighResult,
    EigResult,
    LUFactor,
    SlogdetResult,
    eig,
    eigh,
    eigvalsh,
    logdet,
    logdet_positive_definite,
    lu_factor,
    principal_eigenvector,
    slogdet,
    solve,
)
from ._dtypes import bfloat16, complex32
from ._errors import (
    ConvergenceError,
    Error,
    NonFiniteError,
    NumericalError,
    SingularMatrixError,
    SolverError,
    UnsupportedError,
)
from ._explain import explain as _explain
from ._matrices import (
    adjoint,
    eye,
    is_unitary,
    kron,
    matmul,
    matrix_power,
    matvec,
    partial_trace_left,
    partial_trace_right,
    trace,
    transpose,
)
from ._native import NativeError
from ._signatures import SIGNATURES as _SIGNATURES
from ._vectors import (
    add,
    conjugate,
    divide,
    inner,
    multiply,
    norm,
    outer,
    scale,
    sqrt,
    subtract,
    sum,
    vector_equal,
)

for _signature in _SIGNATURES.values():
    _explain(globals()[_signature.name], _signature)

__version__ = str(_native.build_info()["version"])


def get_include() -> str:
    """The folder for a compiler's -I option, with ``tessaline/plugin.h`` in it.

    >>> get_include().endswith("include")
    True
    """
    return str(_Path(__file__).parent / "include")


__all__ = [
    "Context",
    "ConvergenceError",
    "Description",
    "EigResult",
    "EighResult",
    "Error",
    "LUFactor",
    "NativeError",
    "NonFiniteError",
    "NumericalError",
    "SingularMatrixError",
    "SlogdetResult",
    "SolverError",
    "UnsupportedError",
    "__version__",
    "add",
    "adjoint",
    "bfloat16",
    "complex32",
    "conjugate",
    "describe",
    "divide",
    "eig",
    "eigh",
    "eigvalsh",
    "eye",
    "get_include",
    "inner",
    "is_unitary",
    "kron",
    "logdet",
    "logdet_positive_definite",
    "lu_factor",
    "matmul",
    "matrix_power",
    "matvec",
    "multiply",
    "norm",
    "operations",
    "outer",
    "partial_trace_left",
    "partial_trace_right",
    "principal_eigenvector",
    "scale",
    "slogdet",
    "solve",
    "sqrt",
    "subtract",
    "sum",
    "trace",
    "transpose",
    "vector_equal",
]
