# SPDX-License-Identifier: Apache-2.0
"""What users of the package call, beside the lines of NumPy or SciPy that do as much.

A line stands here once: the text that the table prints is compiled and measured.
"""

from __future__ import annotations

import math
from collections.abc import Callable, Mapping
from dataclasses import dataclass
from typing import Any

import ml_dtypes
import numpy as np
import result_errors
import tessaline

Array = np.ndarray[Any, Any]


@dataclass(frozen=True)
class ElementType:
    """A dtype of operands, with the one that a user of NumPy computes in."""

    dtype: np.dtype[Any]
    wide: np.dtype[Any]

    @property
    def name(self) -> str:
        return self.dtype.name

    @property
    def is_complex(self) -> bool:
        return self.wide.kind == "c"

    @property
    def is_narrow(self) -> bool:
        return self.dtype != self.wide

    @property
    def epsilons(self) -> tuple[float, float]:
        """From 1 to the next number, of a stored element and of its computation."""
        component = np.float16 if self.dtype == tessaline.complex32 else self.dtype
        return float(ml_dtypes.finfo(component).eps), float(np.finfo(self.wide).eps)


ELEMENT_TYPES = tuple(
    ElementType(np.dtype(dtype), np.dtype(wide))
    for dtype, wide in (
        (np.float32, np.float32),
        (np.float64, np.float64),
        (np.complex64, np.complex64),
        (np.complex128, np.complex128),
        (np.float16, np.float32),
        (tessaline.bfloat16, np.float32),
        (tessaline.complex32, np.complex64),
    )
)


class Make:
    """Makes operands of one type and size, the same ones in every run."""

    def __init__(self, element: ElementType, size: int) -> None:
        self._source = np.random.default_rng(20)
        self._element = element
        self._size = size

    def _uniform(self, low: float, high: float, *shape: int) -> Array:
        values = self._source.uniform(low, high, shape)
        if self._element.is_complex:
            return values + 1j * self._source.uniform(low, high, shape)
        return values

    def _square(self, low: float = -1, high: float = 1) -> Array:
        return self._uniform(low, high, self._size, self._size)

    def _stored(self, values: Array) -> Array:
        return values.astype(self._element.dtype)

    def vector(self) -> Array:
        return self._stored(self._uniform(-1, 1, self._size))

    def first_vector(self) -> Array:
        """A copy of the vector that is made first."""
        return Make(self._element, self._size).vector()

    def addends(self) -> Array:
        """No sum of them cancels, and none of float16 overflows."""
        return self._stored(self._uniform(2**-8, 2**-7, self._size))

    def matrix(self) -> Array:
        return self._stored(self._square())

    def positive(self) -> Array:
        """One eigenvalue stands far above the others."""
        return self._stored(self._square(0.5, 1.5))

    def contraction(self) -> Array:
        """Its powers neither overflow nor vanish."""
        return self._stored(self._square() / math.sqrt(self._size))

    def hermitian(self) -> Array:
        values = self._square()
        return self._mirrored(values)

    def definite(self) -> Array:
        values = self._square()
        return self._mirrored(values @ values.conj().T / self._size + np.eye(self._size))

    def _mirrored(self, values: Array) -> Array:
        """Hermitian to the bit, as it would not be where two sums of a product differ."""
        lower = np.tril(values, -1)
        return self._stored(lower + lower.conj().T + np.diag(values.diagonal().real))

    def unitary(self) -> Array:
        """Sylvester's signs over sqrt(n), exact in every type for orders that are powers of 4."""
        signs: Array = np.ones((1, 1))
        while len(signs) < self._size:
            signs = np.kron(signs, [[1, 1], [1, -1]])
        if self._element.is_complex:
            signs = signs * np.where(np.arange(self._size) % 2, 1j, 1)[:, None]
        return self._stored(signs / math.sqrt(self._size))

    def kronecker_left(self) -> Array:
        return self._stored(self._uniform(-1, 1, self._kept, self._kept))

    def kronecker_right(self) -> Array:
        order = self._size // self._kept
        return self._stored(self._uniform(-1, 1, order, order))

    @property
    def _kept(self) -> int:
        return min(4, math.isqrt(self._size))

    def root(self) -> int:
        """The order of what is kept of a product of two spaces of equal dimension."""
        return math.isqrt(self._size)

    def order(self) -> int:
        return self._size

    def number(self) -> Any:
        """A Python number, but for the types that NumPy would not keep beside one."""
        own = self._element.dtype
        return 1.5 if own.isbuiltin == 1 else own.type(1.5)


VECTORS = (4, 1000, 4_000_000)
ORDERS = (4, 64, 256, 1024)

Operands = Mapping[str, Any]


@dataclass(frozen=True)
class Function:
    """A function of the package, and the line that a user would write without it."""

    name: str
    #: What the lines call their operands, each with the method of `Make` that makes it.
    operands: Mapping[str, str]
    #: Names in braces are widened where elements have 16-bit components: NumPy has no fast
    #: product, no exact sum and no solver for them.
    peer: str
    sizes: tuple[int, ...] = ORDERS
    #: By default the function of that name, of all operands.
    ours: str = ""
    #: Whether the peer's result is brought back to the type of widened operands.
    narrowed: bool = False
    #: What `factor` stands for in the two lines; made once and not measured.
    factors: tuple[str, str] = ("None", "None")
    #: How far the two results are from each other, or each from what defines it.
    error: Callable[[Any, Any, Operands], float] = result_errors.relative
    #: So many roundings, as a power of the size, stand behind an element.
    roundings: int = 1
    #: Whether the result is in the type of the operands, and not in that of the computation.
    stored: bool = True
    #: Beyond them a method's own published tolerance, in units of its type's last place.
    tolerance: float = 0

    @property
    def our_line(self) -> str:
        return self.ours or f"tessaline.{self.name}({', '.join(self.operands)})"

    def peer_line(self, element: ElementType) -> str:
        text = widened(self.peer, element)
        return f"({text}).astype(dtype)" if self.narrowed and element.is_narrow else text

    def made(self, element: ElementType, size: int) -> dict[str, Any]:
        make = Make(element, size)
        return {name: getattr(make, kind)() for name, kind in self.operands.items()}

    def limit(self, element: ElementType, size: int) -> float:
        """Of an error: roundings are independent, so that they grow with the root of their
        number, and the results of both sides are rounded to what is stored."""
        stored, computed = element.epsilons
        last = 8 * stored if self.stored else 0
        return last + computed * (16 * math.sqrt(size**self.roundings) + self.tolerance)


def widened(line: str, element: ElementType) -> str:
    return line.replace("{", "").replace("}", ".astype(wide)" if element.is_narrow else "")


PAIR = {"x": "vector", "y": "vector"}
SCALED = {"x": "vector", "number": "number"}
ADDENDS = {"x": "addends"}
MATRIX = {"a": "matrix"}
TWO_MATRICES = {"a": "matrix", "b": "matrix"}
HERMITIAN = {"a": "hermitian"}
SYSTEM = {"a": "matrix", "b": "vector"}
PRODUCT_SPACE = {"a": "matrix", "root": "root"}
#: What eig neglects beside a row and a column, as its numerics record says for each type.
DEFLATION = 1e-4 / 2**-23
LOGARITHMS = result_errors.of_logarithms


def elementwise(name: str, operands: Mapping[str, str], peer: str, **others: Any) -> Function:
    of_elements = result_errors.of_elements
    return Function(name, operands, peer, error=of_elements, roundings=0, **others)


def solver(name: str, operands: Mapping[str, str], peer: str, **others: Any) -> Function:
    return Function(name, operands, peer, stored=False, **others)


def on_factors(name: str, operands: Mapping[str, str], peer: str, **others: Any) -> Function:
    """A method of the object that lu_factor makes."""
    made = ("tessaline.lu_factor(a)", "scipy.linalg.lu_factor({a})")
    return solver(name, operands, peer, factors=made, **others)


FUNCTIONS = (
    elementwise("add", PAIR, "x + y", sizes=VECTORS),
    elementwise("subtract", PAIR, "x - y", sizes=VECTORS),
    elementwise("multiply", PAIR, "x * y", sizes=VECTORS),
    elementwise("scale", SCALED, "x * number", sizes=VECTORS),
    elementwise("divide", SCALED, "x / number", sizes=VECTORS),
    elementwise("sqrt", ADDENDS, "np.sqrt(x)", sizes=VECTORS),
    elementwise("conjugate", {"x": "vector"}, "np.conj(x)", sizes=VECTORS),
    Function("sum", ADDENDS, "{x}.sum()", VECTORS, narrowed=True),
    Function("norm", ADDENDS, "np.linalg.norm({x})", VECTORS),
    Function(
        "inner", {"x": "addends", "y": "addends"}, "np.vdot({x}, {y})", VECTORS, narrowed=True
    ),
    Function(
        "vector_equal",
        {"x": "vector", "y": "first_vector"},
        "np.allclose({x}, {y})",
        VECTORS,
        error=result_errors.both_true,
    ),
    elementwise("outer", PAIR, "np.outer(x, y)"),
    elementwise("kron", {"a": "kronecker_left", "b": "kronecker_right"}, "np.kron(a, b)"),
    elementwise("transpose", MATRIX, "a.T.copy()"),
    elementwise("adjoint", MATRIX, "np.ascontiguousarray(a.conj().T)"),
    elementwise("eye", {"n": "order"}, "np.eye(n, dtype=dtype)", ours="tessaline.eye(n, dtype)"),
    Function("trace", {"a": "positive"}, "np.trace({a})", narrowed=True),
    Function(
        "partial_trace_left",
        PRODUCT_SPACE,
        "np.einsum('ijik->jk', {a}.reshape(root, root, root, root))",
        narrowed=True,
    ),
    Function(
        "partial_trace_right",
        PRODUCT_SPACE,
        "np.einsum('ijkj->ik', {a}.reshape(root, root, root, root))",
        narrowed=True,
    ),
    Function("matvec", SYSTEM, "{a} @ {b}", narrowed=True),
    Function("matmul", TWO_MATRICES, "{a} @ {b}", narrowed=True),
    Function(
        "matrix_power",
        {"a": "contraction"},
        "np.linalg.matrix_power({a}, 10)",
        ours="tessaline.matrix_power(a, 10)",
        narrowed=True,
    ),
    Function(
        "is_unitary",
        {"a": "unitary"},
        "np.allclose({a} @ {a}.conj().T, np.eye(len(a)))",
        error=result_errors.both_true,
    ),
    solver("lu_factor", MATRIX, "scipy.linalg.lu_factor({a})", error=result_errors.of_factors),
    solver("solve", SYSTEM, "np.linalg.solve({a}, {b})", error=result_errors.of_solutions),
    on_factors(
        "LUFactor.solve",
        SYSTEM,
        "scipy.linalg.lu_solve(factor, {b})",
        ours="factor.solve(b)",
        error=result_errors.of_solutions,
    ),
    on_factors(
        "LUFactor.solve, n columns",
        TWO_MATRICES,
        "scipy.linalg.lu_solve(factor, {b})",
        ours="factor.solve(b)",
        error=result_errors.of_solutions,
    ),
    solver("logdet", MATRIX, "np.linalg.slogdet({a})", error=LOGARITHMS, roundings=2),
    on_factors(
        "LUFactor.logdet",
        MATRIX,
        "np.log(factor[0].diagonal() + 0j).sum()"
        " + 1j * np.pi * np.count_nonzero(factor[1] != np.arange(len(factor[1])))",
        ours="factor.logdet()",
        error=LOGARITHMS,
        roundings=2,
    ),
    solver("slogdet", MATRIX, "np.linalg.slogdet({a})", error=LOGARITHMS, roundings=2),
    solver(
        "logdet_positive_definite",
        {"a": "definite"},
        "2 * np.log(np.linalg.cholesky({a}).diagonal().real).sum()",
    ),
    # Rotations turn each row n times a sweep.
    solver("eigvalsh", HERMITIAN, "np.linalg.eigvalsh({a})", roundings=2),
    solver("eigh", HERMITIAN, "np.linalg.eigh({a})", error=result_errors.of_eigh, roundings=2),
    solver(
        "eig",
        MATRIX,
        "np.linalg.eig({a})",
        error=result_errors.of_eig,
        roundings=2,
        tolerance=DEFLATION,
    ),
    solver(
        "principal_eigenvector",
        {"a": "positive"},
        "scipy.sparse.linalg.eigs({a}, 1)[1][:, 0]",
        error=result_errors.up_to_phase,
        tolerance=DEFLATION,
    ),
)
