# SPDX-License-Identifier: Apache-2.0
"""Factorisations, linear systems, determinants and eigenvalues.

Results are in compute precision: of float16 and bfloat16 operands in float32, of complex32 in
complex64. A matrix that has no result raises a NumericalError, which is also a
numpy.linalg.LinAlgError; one that holds NaN or an infinity raises NonFiniteError everywhere.
"""

from __future__ import annotations

from typing import Any, NamedTuple

import numpy as np
from numpy.typing import ArrayLike, DTypeLike

from . import _native
from ._call import call, check_output, function, refuse_overlap
from ._context import Context, current_context, explained
from ._dtypes import WORDS, Dtype, computed_in, from_word
from ._errors import NumericalError, is_finite, no_finite_result
from ._operands import Array, convert, make_ready, numeric_dtype, plain_array
from ._signatures import INPUT, OUTPUT, SIGNATURES

_LU_FACTOR = SIGNATURES["lu_factor"]
_SOLVE = SIGNATURES["solve"]
_LOGDET = SIGNATURES["logdet"]
_EIG = SIGNATURES["eig"]
_PRINCIPAL = SIGNATURES["principal_eigenvector"]
_EIGH = SIGNATURES["eigh"]
_SLOGDET = SIGNATURES["slogdet"]

_eigvalsh = function("eigvalsh")
_positive_logdet = function("logdet_positive_definite")


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

    Nothing changes a factor, so several threads may solve with one. It runs on the context that
    made it, unless a call names another. A copy, or one that was pickled, solves with the same
    bits.
    """

    def __init__(self, operand: Any, source: Dtype, context: Context) -> None:
        self._operand = operand
        self._source = source
        self._context = context

    def __repr__(self) -> str:
        return f"<LUFactor of order {self.size}, {self.dtype}>"

    def __reduce__(self) -> tuple[Any, ...]:
        operand = self._operand
        content = (operand.factors, operand.pivots, operand.swaps)
        return _restored_factor, (*content, WORDS[self._source][0], self._context)

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

    def solve(
        self,
        b: ArrayLike,
        *,
        out: Array | None = None,
        dtype: DTypeLike | None = None,
        context: Context | None = None,
    ) -> Array:
        """The solution x of A x = b for a vector b of n elements, or one for each column.

        `b` has the dtype of the factors or of the matrix they were made from; a `dtype` is one of
        these two, to convert `b` to. `out` may be `b`.
        """
        rhs = self._right_hand_side(b, dtype)
        if rhs.ndim not in (1, 2) or rhs.shape[0] != self.size:
            raise ValueError(f"solve: b has shape {rhs.shape}, the matrix is of order {self.size}")
        if out is not None:
            check_output("solve", out, rhs.shape, self.dtype)
            refuse_overlap("solve", out, rhs, "b", in_place=True)
        context = self._context if context is None else current_context(context)
        if rhs.ndim == 1:
            result = np.empty_like(rhs) if out is None else out
            np.copyto(result, rhs)
            self._solve_rows(result.reshape(1, -1), context)
            return result
        columns = np.array(rhs.T, order="C", copy=True)
        self._solve_rows(columns, context)
        if out is None:
            return np.ascontiguousarray(columns.T)
        np.copyto(out, columns.T)
        return out

    def _right_hand_side(self, b: ArrayLike, dtype: DTypeLike | None) -> Array:
        array = plain_array("solve", "b", b)
        if dtype is not None:
            array = convert("solve", "b", array, self._own_dtype("solve", dtype))
        elif hasattr(b, "dtype"):
            own = array.dtype.newbyteorder("=")
            if own not in (self.dtype, self._source):
                raise TypeError(f"solve: a is {self._source} and b is {own}; dtypes are not mixed")
        return convert("solve", "b", array, self.dtype)

    def _own_dtype(self, name: str, dtype: DTypeLike) -> Dtype:
        wanted = numeric_dtype(dtype, name)
        if wanted not in (self.dtype, self._source):
            raise TypeError(
                f"{name}: a is a factor of {self._source} and cannot become {wanted}; "
                "factor the matrix with that dtype"
            )
        return wanted

    def _solve_rows(self, rows: Array, context: Context) -> None:
        try:
            self._operand._solve_rows(context._native, rows)
        except (RuntimeError, ValueError) as failure:
            error = explained(_SOLVE, failure)
            if error is failure:
                raise
            raise error from None

    def logdet(self, *, dtype: DTypeLike | None = None, context: Context | None = None) -> Any:
        """The logarithm of the determinant, a complex number.

        Its imaginary part is the angle of the determinant: 0 or pi for a real matrix. It is not
        folded into the principal range for complex64. A `dtype` can only be the factor's own.
        """
        if dtype is not None:
            self._own_dtype("logdet", dtype)
        context = self._context if context is None else current_context(context)
        result = np.empty((), _complex_of(self.dtype))
        context._run(_LOGDET, {INPUT: self._operand, OUTPUT: result})
        return result[()]


def _restored_factor(
    factors: Array, pivots: Array, swaps: int, source: str, context: Context
) -> LUFactor:
    operand = _native.LUOperand(len(factors), dtype=WORDS[factors.dtype][0])
    operand.factors[...] = factors
    operand.pivots[...] = pivots
    operand._set_swaps(swaps)
    return LUFactor(operand, from_word(source), context)


def lu_factor(
    a: ArrayLike, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> LUFactor:
    """Factors a square matrix with partial pivoting, in some 2/3 n^3 operations.

    Raises SingularMatrixError where a pivot is zero, and SolverError where one leaves the range.

    Factors of complex64 and complex32 compare pivots by their squared magnitudes in float32. A
    pivot of magnitude below some 3.5e-4 counts as zero, however small the matrix is as a whole, and
    those above 1.8e19 are not told apart: scale such matrices to a norm near 1, or use complex128.

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
    try:
        context._run(_LU_FACTOR, {OUTPUT: operand})
    except NumericalError as failure:
        # NaN and infinities show up as pivots that are singular or left the range.
        raise no_finite_result(_LU_FACTOR.id, str(failure), array, failure) from None
    # The other dtypes look at each pivot in turn. NaN or an infinity anywhere reaches a pivot.
    if operand.dtype == "complex64" and not is_finite(operand.factors.diagonal()):
        raise no_finite_result(_LU_FACTOR.id, "LU factorisation - non-finite pivot", array)
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

    `a` is an n by n matrix or the factor that `lu_factor` made of one, whose methods tell what
    `dtype` and `context` mean then. Raises SingularMatrixError where the matrix has no inverse.
    Complex64 has the limits that `lu_factor` tells of. `out` may be `b`.

    >>> solve([[2, 0], [0, 4]], [2, 2])
    array([1. , 0.5])
    """
    if isinstance(a, LUFactor):
        return a.solve(b, out=out, dtype=dtype, context=context)
    matrix, rhs = make_ready("solve", _SOLVE.names, (a, b), dtype)
    if isinstance(out, np.ndarray):
        refuse_overlap("solve", out, matrix, "a")
    return lu_factor(matrix, context=context).solve(rhs, out=out)


def logdet(
    a: ArrayLike | LUFactor, *, dtype: DTypeLike | None = None, context: Context | None = None
) -> Any:
    """The complex logarithm of the determinant of a square matrix or of its factor.

    Raises SingularMatrixError for a singular matrix; `slogdet` has a result there.

    >>> logdet([[1, 0], [0, -1]])
    np.complex128(3.141592653589793j)
    """
    if isinstance(a, LUFactor):
        return a.logdet(dtype=dtype, context=context)
    return lu_factor(a, dtype=dtype, context=context).logdet()


def slogdet(
    a: ArrayLike,
    *,
    out: tuple[Array, Array] | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> SlogdetResult:
    """Sign and logarithm of the magnitude of the determinant of a square matrix.

    A singular matrix has the sign 0 and the logarithm -inf. Raises SolverError where the
    elimination leaves the range.

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

    Raises NumericalError where the matrix is not Hermitian, SolverError where it is not positive
    definite.

    >>> logdet_positive_definite([[1, 0], [0, 1]])
    np.float64(0.0)
    """
    return _positive_logdet(a, out, dtype, context)


def eig(
    a: ArrayLike,
    *,
    out: tuple[Array, Array] | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> EigResult:
    """All eigenvalues and right eigenvectors of a square matrix, complex also for a real one.

    The solver works in complex128 on the full matrix, and its time grows with the fourth power of
    the order: seconds at 200. `eigh` is much faster for Hermitian matrices.

    Raises ConvergenceError where 256 iterations in a row find no eigenvalue, and SolverError for
    pairs that fail their residual check, as they may where rows, columns or entries differ by a
    factor of 2**40 and more, and for eigenvalues beyond the range of the result.

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
        refuse_overlap("eig", out[0], out[1], "out[1]", label="out[0]")
        for i in (0, 1):
            refuse_overlap("eig", out[i], array, "a", label=f"out[{i}]")
        outputs = out
    operand: Any = _native.EigenOperand(n, dtype=WORDS[result][0])
    context._run(_EIG, {INPUT: array, OUTPUT: operand})
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

    Raises NumericalError where the matrix is not Hermitian, SolverError where an eigenvalue leaves
    the range.

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

    Raises NumericalError where the matrix is not Hermitian, SolverError where an eigenvalue leaves
    the range.

    >>> eigvalsh([[2, 0], [0, 1]])
    array([1., 2.])
    """
    return _eigvalsh(a, out, dtype, context)


def principal_eigenvector(
    a: ArrayLike,
    *,
    out: Array | None = None,
    dtype: DTypeLike | None = None,
    context: Context | None = None,
) -> Array:
    """A complex eigenvector of the eigenvalue of greatest magnitude, of norm 1.

    It is defined up to a phase, and only where one eigenvalue is greatest. It costs what `eig`
    does, but for complex64: there it is the vector after at most 512 steps of power iteration from
    the vector of ones, converged or not, in some n^2 operations a step. Squares in that iteration
    are formed as they are, so a matrix of norm below some 1e-7 or above 1e19 can give a vector of
    norm 0: scale it to a norm near 1, or use complex128.

    >>> principal_eigenvector([[3, 0], [0, 1]]).real.round(12)
    array([1., 0.])
    """
    (array,) = make_ready("principal_eigenvector", _PRINCIPAL.names, (a,), dtype)
    result: Array = call(_PRINCIPAL, (array,), out=out, context=context)
    # Power iteration goes on with whatever the arithmetic gives.
    if array.dtype == np.complex64 and not is_finite(result):
        raise no_finite_result(_PRINCIPAL.id, "power iteration - non-finite iterate", array)
    return result
