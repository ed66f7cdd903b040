# SPDX-License-Identifier: Apache-2.0
"""What a failing operation raises.

Wrong arguments raise ValueError and TypeError, as in NumPy. A call with good arguments that cannot
be served raises an Error, which tells the operation, the reason and the detail. One that fails for
the values of its operands raises a NumericalError, which is a numpy.linalg.LinAlgError as well.
"""

from __future__ import annotations

from typing import Any

import numpy as np
from numpy.typing import NDArray

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


class NumericalError(Error, np.linalg.LinAlgError):
    """The operands are well formed, but their values have no result."""


class NonFiniteError(NumericalError):
    """A matrix that has to be finite holds NaN or an infinity."""


class SingularMatrixError(NumericalError):
    """A matrix that has to be invertible is not."""


class ConvergenceError(NumericalError):
    """An iteration reached its limit."""


class SolverError(NumericalError):
    """A solver gave up: the matrix is not positive definite, or a range was left."""


#: The reason of failures that come without one and that no row below knows.
_NO_REASON = "runtime_failure"

_NON_FINITE = "non_finite"
_NOT_HERMITIAN = "not_hermitian"
_SOLVER_FAILURE = "solver_failure"

_CLASSES: dict[str, type[Error]] = {
    "no_backend_available": UnsupportedError,
    "unsupported_adaptation": UnsupportedError,
    "singular": SingularMatrixError,
    "non_convergence": ConvergenceError,
    _SOLVER_FAILURE: SolverError,
    _NON_FINITE: NonFiniteError,
    _NOT_HERMITIAN: NumericalError,
}

#: What solvers say, in part, of values that they refuse or that leave their range, where they give
#: no reason or a more general one.
_REASONS = {
    "input must contain only finite entries": _NON_FINITE,
    "input contains a non-finite value": _NON_FINITE,
    "input must be symmetric/Hermitian": _NOT_HERMITIAN,
    "LU factorisation - non-finite pivot": _SOLVER_FAILURE,
    "solve - invalid LU pivot": _SOLVER_FAILURE,
    "slogdet - non-finite LU pivot": _SOLVER_FAILURE,
    "eigh/eigvalsh - eigenvalue overflow": _SOLVER_FAILURE,
    "failed to complete orthonormal basis": _SOLVER_FAILURE,
}

for _class in (Error, NumericalError, *_CLASSES.values()):
    _class.__module__ = "tessaline"  # where people catch them, and where a traceback names them


def is_from_python(failure: Exception) -> bool:
    """Whether a failure came from beyond the frame that called the native module and caught it."""
    traceback = failure.__traceback__
    return traceback is not None and traceback.tb_next is not None


def error_from(operation: str, failure: Exception) -> Error | None:
    """The error for people that a failure of the native module becomes.

    None for a refusal of wrong arguments, which people can read as it is, and for what a handler
    of a signal raised during the call.
    """
    if is_from_python(failure):
        return None
    message = str(failure)
    known = dict(vars(failure))
    reason = known.pop("reason", _NO_REASON)
    if operation.startswith("tessaline."):  # plugins may say what they like
        reason = next((word for text, word in _REASONS.items() if text in message), reason)
    if reason == _NO_REASON and not isinstance(failure, RuntimeError):
        return None
    error = _CLASSES.get(reason, Error)(
        message, operation=operation, reason=reason, detail=known.pop("detail", None)
    )
    vars(error).update({**known, "operation": operation})
    return error


def is_finite(array: NDArray[Any]) -> bool:
    return bool(np.isfinite(array).all())


def no_finite_result(
    operation: str, message: str, matrix: NDArray[Any], failure: NumericalError | None = None
) -> NumericalError:
    """The error of an operation that stumbled over the values of a matrix without naming them.

    That is NonFiniteError where the matrix was not finite to begin with. Else it is `failure`, or
    a SolverError: the arithmetic left the range.
    """
    if not is_finite(matrix):
        message += ": the matrix holds NaN or an infinity"
        return NonFiniteError(message, operation=operation, reason=_NON_FINITE)
    return failure or SolverError(message, operation=operation, reason=_SOLVER_FAILURE)
