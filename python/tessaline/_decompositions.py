# SPDX-License-Identifier: Apache-2.0
"""Factorisations, linear systems, determinants and eigenvalues.

Results are in compute precision: of float16 and bfloat16 operands in float32, of complex32 in
complex64. A matrix that has no result raises an error that is also a numpy.linalg.LinAlgError.
"""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np
from numpy.typing import ArrayLike, DTypeLike

from . import _native
from ._call import Array, call, check_output, convert, make_ready, refuse_overlap
from ._context import Context, current_context
from ._dtypes import WORDS, Dtype, computed_in
from ._signatures import INPUT, OUTPUT, SIGNATURES

_LU_FACTOR = SIGNATURES["lu_factor"]
_SOLVE = SIGNATURES["solve"]
_LOGDET = SIGNATURES["logdet"]
_EIG = SIGNATURES["eig"]
_PRINCIPAL = SIGNATURES["principal_eigenvector"]
_EIGH = SIGNATURES["eigh"]
_EIGVALSH = SIGNATURES["eigvalsh"]
_SLOGDET = SIGNATURES["slogdet"]
_POSITIVE_LOGDET = SIGNATURES["logdet_positive_definite"]


class EighResult(NamedTuple):
    """Eigenvalues in ascending order, and the eigenvectors in the columns of a matrix."""

    eigenvalues: Array
    eigenvectors: Array


class EigResult(NamedTuple):
    """Complex eigenvalues, and the right eigenvectors in the columns of a matrix."""

    eigenvalues: Array
    eigenvectors: Array


class SlogdetResult(NamedTuple):
    """A determinant as sign (or unit phase) times the exponential of a real logarithm."""

    sign: Any
    logabsdet: Any


def _complex_of(dtype: Dtype) -> Dtype:
    """The complex dtype of a compute dtype's precision."""
    return np.result_type(dtype, np.complex64)


class LUFactor:
    """A matrix factored as P A = L U, ready to solve systems. Made by `lu_factor`.

    Nothing changes a factor, so several threads may solve with one.
    """

    def __init__(self, operand: Any, source: Dtype, context: Context) -> None:
        self._operand = operand
        self._source = source
        self._context = context

    def __repr__(self) -> str:
        return f"<LUFactor of order {self.size}, {self.dtype}>"

    @property
    def size(self) -> int:
        """The order n of the matrix."""
        return int(self._operand.size)

    @property
    def dtype(self) -> Dtype:
        """The dtype of the factors and of solutions."""
        return np.dtype(self._operand.dtype)

    @property
    def factors(self) -> Array:
        """L below the diagonal, with ones on it that are not stored, and U above; read-only."""
        factors: Array = self._operand.factors
        factors.flags.writeable = False
        return factors

    @property
    def pivots(self) -> Array:
        """Step k swapped row k with row ``pivots[k]``, rows counted from 0."""
        return np.subtract(self._operand.pivots, 1, dtype=np.int64)

    def solve(self, b: ArrayLike, *, out: Array | None = None) -> Array:
        """The solution x of A x = b for a vector b of n elements, or one for each column.

        `b` has the dtype of the factors or of the matrix they were made from. `out` may be `b`.
        """
        rhs = self._right_hand_side(b)
        if rhs.ndim not in (1, 2) or rhs.shape[0] != self.size:
            raise ValueError(
                f"solve: b has shape {rhs.shape}, the matrix is of order {self.size}"
            )
        if out is not None:
            check_output("solve", out, rhs.shape, self.dtype)
            refuse_overlap("solve", out, (rhs,), elementwise=True)
        if rhs.ndim == 1:
            result = np.empty_like(rhs) if out is None else out
            np.copyto(result, rhs)
            self._solve_in_place(result)
            return result
        columns = np.array(rhs.T, order="C", copy=True)
        for column in columns:
            self._solve_in_place(column)
        if out is None:
            return np.ascontiguousarray(columns.T)
        np.copyto(out, columns.T)
        return out

    def _right_hand_side(self, b: ArrayLike) -> Array:
        if isinstance(b, (np.ndarray, np.generic)):
            own = b.dtype.newbyteorder("=")
            if own not in (self.dtype, self._source):
                raise TypeError(
                    f"solve: a is {self._source} and b is {own}; dtypes are not mixed"
                )
        return convert("solve", "b", np.asarray(b), self.dtype)

    def _solve_in_place(self, vector: Array) -> None:
        self._context.run(_SOLVE, {INPUT: self._operand, OUTPUT: vector})

    def logdet(self) -> Any:
        """The logarithm of the determinant, a complex number.

        Its imaginary part is the angle of the determinant: 0 or pi for a real matrix. It is not
        folded into the principal range for complex64.
        """
        result = np.empty((), _complex_of(self.dtype))
        self._context.run(_LOGDET, {INPUT: self._operand, OUTPUT: result})
        return result[()]


def lu_factor(
    a: ArrayLike, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> LUFactor:
    """Factors a square matrix with partial pivoting.

    Raises SingularMatrixError where a pivot is zero; the complex64 engine also refuses pivots
    with a squared magnitude below its machine epsilon.

    >>> factor = lu_factor([[0, 2], [4, 0]])
    >>> factor.solve([2, 4])
    array([1., 1.])
    >>> factor.pivots
    array([1, 1])
    """
    context = current_context(context)
    (array,) = make_ready("lu_factor", _LU_FACTOR.names, (a,), dtype)
    _LU_FACTOR.bind((array.shape,))
    operand = _native.LUOperand(array)
    context.run(_LU_FACTOR, {OUTPUT: operand})
    return LUFactor(operand, array.dtype, context)


def solve(
    a: ArrayLike | LUFactor,
    b: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The solution x of A x = b, for a vector b or for each column of a matrix b.

    `a` is an n by n matrix or the factor that `lu_factor` made of one. Raises SingularMatrixError
    where the matrix has no inverse. `out` may be `b`.

    >>> solve([[2, 0], [0, 4]], [2, 2])
    array([1. , 0.5])
    """
    if isinstance(a, LUFactor):
        return a.solve(b, out=out)
    matrix, rhs = make_ready("solve", _SOLVE.names, (a, b), dtype)
    return lu_factor(matrix, context=context).solve(rhs, out=out)


def logdet(
    a: ArrayLike | LUFactor, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> Any:
    """The complex logarithm of the determinant of a square matrix or of its factor.

    Raises SingularMatrixError for a singular matrix; `slogdet` has a result there.

    >>> logdet([[1, 0], [0, -1]])
    np.complex128(3.141592653589793j)
    """
    factor = a if isinstance(a, LUFactor) else lu_factor(a, dtype=dtype, context=context)
    return factor.logdet()


def slogdet(
    a: ArrayLike,
    *,
    out: tuple[Array, Array] | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> SlogdetResult:
    """Sign and logarithm of the magnitude of the determinant of a square matrix.

    A singular matrix has the sign 0 and the logarithm -inf. The entries must be finite.

    >>> slogdet([[2, 0], [0, -0.5]])
    SlogdetResult(sign=np.float64(-1.0), logabsdet=np.float64(0.0))
    """
    return SlogdetResult(*call(_SLOGDET, (a,), out=out, dtype=dtype, context=context))


def logdet_positive_definite(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Any:
    """The real logarithm of the determinant of a positive definite matrix.

    Raises ValueError where the matrix is not Hermitian or not finite, SolverError where it is not
    positive definite.

    >>> logdet_positive_definite([[1, 0], [0, 1]])
    np.float64(0.0)
    """
    return call(_POSITIVE_LOGDET, (a,), out=out, dtype=dtype, context=context)


def eig(
    a: ArrayLike,
    *,
    out: tuple[Array, Array] | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> EigResult:
    """All eigenvalues and right eigenvectors of a square matrix, complex also for a real one.

    `out` is a pair of C-contiguous arrays for values and vectors. Raises ConvergenceError where
    the iteration reaches its limit, and SolverError for pairs that fail their residual check.

    >>> values, vectors = eig([[0, 1], [-1, 0]])
    >>> sorted(values.imag.round(12).tolist())
    [-1.0, 1.0]
    """
    context = current_context(context)
    (array,) = make_ready("eig", _EIG.names, (a,), dtype)
    n = _EIG.bind((array.shape,))["n"]
    result = _complex_of(computed_in(array.dtype))
    outputs = None
    if out is not None:
        if not isinstance(out, tuple) or len(out) != 2:
            raise TypeError("eig: out must be a tuple of 2 arrays")
        check_output("eig", out[0], (n,), result, "out[0]")
        check_output("eig", out[1], (n, n), result, "out[1]")
        refuse_overlap("eig", out[0], out[1:], False, "out[0]")
        outputs = out
    operand: Any = _native.EigenOperand(n, dtype=WORDS[result][0])
    context.run(_EIG, {INPUT: array, OUTPUT: operand})
    found = EigResult(operand.values, operand.vectors)
    if outputs is None:
        return found
    for target, source in zip(outputs, found):
        np.copyto(target, source)
    return EigResult(*outputs)


def eigh(
    a: ArrayLike,
    *,
    out: tuple[Array, Array] | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> EighResult:
    """Real eigenvalues, ascending, and orthonormal eigenvectors of a Hermitian matrix.

    Raises ValueError where the matrix is not Hermitian or not finite.

    >>> eigh([[2, 0], [0, 1]]).eigenvalues
    array([1., 2.])
    """
    return EighResult(*call(_EIGH, (a,), out=out, dtype=dtype, context=context))


def eigvalsh(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """The real eigenvalues, ascending, of a Hermitian matrix.

    Raises ValueError where the matrix is not Hermitian or not finite.

    >>> eigvalsh([[2, 0], [0, 1]])
    array([1., 2.])
    """
    return call(_EIGVALSH, (a,), out=out, dtype=dtype, context=context)


def principal_eigenvector(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """A complex eigenvector of the eigenvalue of greatest magnitude, of norm 1.

    It is defined up to a phase, and only where one eigenvalue is greatest.

    >>> principal_eigenvector([[3, 0], [0, 1]]).real.round(12)
    array([1., 0.])
    """
    return call(_PRINCIPAL, (a,), out=out, dtype=dtype, context=context)
