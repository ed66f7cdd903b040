# SPDX-License-Identifier: Apache-2.0
"""Libraries with the interfaces of BLAS and LAPACK, called without NumPy or SciPy in between.

A call makes its result anew, as the package does, and a copy first where the routine overwrites an
operand. In the peers' favour, LAPACK's matrices lie in columns before the call, and it does not
search them for NaN.
"""

from __future__ import annotations

import ctypes
import importlib.metadata
from collections.abc import Callable, Mapping
from typing import Any

import numpy as np

ROWS, COLUMNS = 101, 102
AS_IS = 111
NO, YES, LOWER = (ctypes.c_char(letter) for letter in (b"N", b"V", b"L"))

LETTERS = {"float32": "s", "float64": "d", "complex64": "c", "complex128": "z"}
REAL = {"s": ctypes.c_float, "c": ctypes.c_float, "d": ctypes.c_double, "z": ctypes.c_double}

Array = np.ndarray[Any, Any]
Call = Callable[[], Any]


class Library:
    """A library that a package of the index brought, with the prefix of its names."""

    def __init__(self, name: str, package: str, file: str, prefix: str) -> None:
        self.name = name
        self.version = f"{package} {importlib.metadata.version(package)}"
        files = importlib.metadata.files(package) or []
        found = next((each for each in files if each.name.startswith(file)), None)
        if found is None:
            raise FileNotFoundError(f"{package} holds no {file}")
        self._library = ctypes.CDLL(str(found.locate()))
        self._prefix = prefix
        self["LAPACKE_set_nancheck"](0)

    def __getitem__(self, name: str) -> Any:
        return getattr(self._library, self._prefix + name)


def load_libraries() -> tuple[list[Library], list[str]]:
    """The libraries that are installed, and a line for each one that is not."""
    found, absent = [], []
    for name, package, file, prefix in (
        ("OpenBLAS", "scipy-openblas32", "libscipy_openblas.so", "scipy_"),
        ("MKL", "mkl", "libmkl_rt.so", ""),
    ):
        try:
            found.append(Library(name, package, file, prefix))
        except (importlib.metadata.PackageNotFoundError, OSError) as failure:
            absent.append(f"{name}, {package}: {failure}")
    return found, absent


def at(array: Array) -> Any:
    """The address of an array as an argument, in less time than NumPy's attribute takes."""
    return ctypes.byref(ctypes.c_char.from_buffer(array))


class Calls:
    """Makes calls of one library for operands of one dtype. Whatever can be made ready is."""

    def __init__(self, library: Library, dtype: np.dtype[Any], operands: Mapping[str, Any]) -> None:
        self._library = library
        self._dtype = dtype
        self._complex = dtype.kind == "c"
        self._letter = LETTERS[dtype.name]
        self._operands = operands
        self._one, self._zero = self._scalar(1), self._scalar(0)

    def _scalar(self, value: float) -> Any:
        return at(np.array(value, self._dtype)) if self._complex else REAL[self._letter](value)

    def _blas(self, routine: str) -> Any:
        return self._library[f"cblas_{self._letter}{routine}"]

    def _lapack(self, routine: str) -> Callable[..., None]:
        function = self._library[f"LAPACKE_{self._letter}{routine}"]

        def checked(*arguments: Any) -> None:
            status = function(COLUMNS, *arguments)
            if status:
                raise ArithmeticError(f"{routine} of {self._library.name} answers {status}")

        return checked

    def _columns(self, name: str) -> Array:
        """The transpose in rows, which LAPACK reads as the matrix."""
        return np.ascontiguousarray(self._operands[name].T)

    def add(self) -> Call:
        axpy, x, y = self._blas("axpy"), self._operands["x"], self._operands["y"]
        n, source, one = len(x), at(x), self._one

        def call() -> Array:
            total: Array = y.copy()
            axpy(n, one, source, 1, at(total), 1)
            return total

        return call

    def scale(self) -> Call:
        scal, x = self._blas("scal"), self._operands["x"]
        n, number = len(x), self._scalar(self._operands["number"])

        def call() -> Array:
            product: Array = x.copy()
            scal(n, number, at(product), 1)
            return product

        return call

    def norm(self) -> Call:
        # The letter of the result comes first.
        letters = {"c": "sc", "z": "dz"}.get(self._letter, self._letter)
        function, x = self._library[f"cblas_{letters}nrm2"], self._operands["x"]
        function.restype = REAL[self._letter]
        n, source = len(x), at(x)
        return lambda: function(n, source, 1)

    def inner(self) -> Call:
        x, y = self._operands["x"], self._operands["y"]
        n, left, right = len(x), at(x), at(y)
        if not self._complex:
            dot = self._blas("dot")
            dot.restype = REAL[self._letter]
            return lambda: dot(n, left, 1, right, 1)
        dotc = self._blas("dotc_sub")
        dtype = self._dtype

        def call() -> Array:
            product = np.empty((), dtype)
            dotc(n, left, 1, right, 1, at(product))
            return product

        return call

    def outer(self) -> Call:
        ger = self._blas("geru" if self._complex else "ger")
        x, y = self._operands["x"], self._operands["y"]
        n, left, right, one, dtype = len(x), at(x), at(y), self._one, self._dtype

        def call() -> Array:
            product = np.zeros((n, n), dtype)
            ger(ROWS, n, n, one, left, 1, right, 1, at(product), n)
            return product

        return call

    def matvec(self) -> Call:
        gemv, a, b = self._blas("gemv"), self._operands["a"], self._operands["b"]
        n, left, right, one, zero = len(a), at(a), at(b), self._one, self._zero

        def call() -> Array:
            product = np.empty_like(b)
            gemv(ROWS, AS_IS, n, n, one, left, n, right, 1, zero, at(product), 1)
            return product

        return call

    def matmul(self) -> Call:
        gemm, a, b = self._blas("gemm"), self._operands["a"], self._operands["b"]
        n, left, right, one, zero = len(a), at(a), at(b), self._one, self._zero

        def call() -> Array:
            product = np.empty_like(a)
            gemm(ROWS, AS_IS, AS_IS, n, n, n, one, left, n, right, n, zero, at(product), n)
            return product

        return call

    def lu_factor(self) -> Call:
        getrf, columns = self._lapack("getrf"), self._columns("a")
        n = len(columns)

        def call() -> tuple[Array, Array]:
            factors, pivots = columns.copy(), np.empty(n, np.int32)
            getrf(n, n, at(factors), n, at(pivots))
            return factors.T, pivots - 1

        return call

    def solve(self) -> Call:
        gesv, columns, b = self._lapack("gesv"), self._columns("a"), self._operands["b"]
        n = len(columns)

        def call() -> Array:
            factors, pivots, x = columns.copy(), np.empty(n, np.int32), b.copy()
            gesv(n, 1, at(factors), n, at(pivots), at(x), n)
            return x

        return call

    def solve_factored(self) -> Call:
        getrs = self._lapack("getrs")
        lu, swaps = self.lu_factor()()
        factors, pivots = lu.T, swaps + 1
        columns = self._columns("b")
        n = len(factors)
        count = columns.size // n

        def call() -> Array:
            x = columns.copy()
            getrs(NO, n, count, at(factors), n, at(pivots), at(x), n)
            return x.T

        return call

    def slogdet(self) -> Call:
        factorised = self.lu_factor()

        def call() -> tuple[Any, Any]:
            factors, pivots = factorised()
            diagonal = factors.diagonal()
            sizes = np.abs(diagonal)
            swaps = np.count_nonzero(pivots != np.arange(len(pivots)))
            return (-1) ** swaps * np.prod(diagonal / sizes), np.log(sizes).sum()

        return call

    def logdet_positive_definite(self) -> Call:
        potrf, columns = self._lapack("potrf"), self._columns("a")
        n = len(columns)

        def call() -> Any:
            factor = columns.copy()
            potrf(LOWER, n, at(factor), n)
            return 2 * np.log(factor.diagonal().real).sum()

        return call

    def eigvalsh(self) -> Call:
        both = self._hermitian(NO)
        return lambda: both()[0]

    def eigh(self) -> Call:
        return self._hermitian(YES)

    def _hermitian(self, vectors: Any) -> Call:
        evd = self._lapack("heevd" if self._complex else "syevd")
        columns, real = self._columns("a"), self._operands["a"].real.dtype
        n = len(columns)

        def call() -> tuple[Array, Array]:
            work, values = columns.copy(), np.empty(n, real)
            evd(vectors, LOWER, n, at(work), n, at(values))
            return values, work.T

        return call

    def eig(self) -> Call | None:
        """Complex matrices only: of real ones geev packs conjugate pairs in a form of its own."""
        if not self._complex:
            return None
        geev, columns = self._lapack("geev"), self._columns("a")
        n = len(columns)

        def call() -> tuple[Array, Array]:
            work, vectors = columns.copy(), np.empty_like(columns)
            values = np.empty(n, columns.dtype)
            geev(NO, YES, n, at(work), n, at(values), None, n, at(vectors), n)
            return values, vectors.T

        return call


#: The functions that a routine, or two, do the work of.
ROUTINES: dict[str, Callable[[Calls], Call | None]] = {
    "add": Calls.add,
    "scale": Calls.scale,
    "norm": Calls.norm,
    "inner": Calls.inner,
    "outer": Calls.outer,
    "matvec": Calls.matvec,
    "matmul": Calls.matmul,
    "lu_factor": Calls.lu_factor,
    "solve": Calls.solve,
    "LUFactor.solve": Calls.solve_factored,
    "LUFactor.solve, n columns": Calls.solve_factored,
    "logdet": Calls.slogdet,
    "slogdet": Calls.slogdet,
    "logdet_positive_definite": Calls.logdet_positive_definite,
    "eigvalsh": Calls.eigvalsh,
    "eigh": Calls.eigh,
    "eig": Calls.eig,
}


def call_of(
    library: Library, function: str, dtype: np.dtype[Any], operands: Mapping[str, Any]
) -> Call | None:
    """The call that does a function's work, if the library has it for that dtype."""
    if function not in ROUTINES or dtype.name not in LETTERS:
        return None
    return ROUTINES[function](Calls(library, dtype, operands))
