# SPDX-License-Identifier: Apache-2.0
"""What a failing operation raises.

Wrong arguments raise ValueError and TypeError, as in NumPy. A call with good arguments that cannot
be served raises an Error, which tells the operation, the reason and the detail.
"""

from __future__ import annotations

import numpy.linalg

from ._native import NativeError


class Error(NativeError):
    """A call that the runtime could not serve.

    Attributes:
        operation: id of the operation, such as ``tessaline.lu_factor@1``.
        reason: one word, such as ``singular`` or ``no_backend_available``.
        detail: what the solver said, or None where no solver was reached.

    A failure of a library or a solver also has `library` and `native_status`.
    """

    def __init__(
        self, message: str, *, operation: str = "", reason: str = "", detail: str | None = None
    ) -> None:
        super().__init__(message)
        self.operation = operation
        self.reason = reason
        self.detail = detail


class UnsupportedError(Error, TypeError):
    """No implementation takes operands of these dtypes."""


class NumericalError(Error, numpy.linalg.LinAlgError):
    """The operands are well formed, but their values have no result."""


class SingularMatrixError(NumericalError):
    """A matrix that has to be invertible is not."""


class ConvergenceError(NumericalError):
    """An iteration reached its limit."""


class SolverError(NumericalError):
    """A solver gave up: the matrix is not positive definite, or a range was left."""


_CLASSES: dict[str, type[Error]] = {
    "no_backend_available": UnsupportedError,
    "unsupported_adaptation": UnsupportedError,
    "singular": SingularMatrixError,
    "non_convergence": ConvergenceError,
    "solver_failure": SolverError,
}


#: The reason of failures that come without one, such as a range that the arithmetic left.
_NO_REASON = "runtime_failure"

for _class in (Error, UnsupportedError, NumericalError, *_CLASSES.values()):
    _class.__module__ = "tessaline"  # where people catch them, and where a traceback names them


def error_from(operation: str, failure: RuntimeError) -> Error:
    """The error for people that a failure of the native module becomes."""
    known = dict(vars(failure))
    reason = known.pop("reason", _NO_REASON)
    error = _CLASSES.get(reason, Error)(
        str(failure), operation=operation, reason=reason, detail=known.pop("detail", None)
    )
    vars(error).update({**known, "operation": operation})
    return error
