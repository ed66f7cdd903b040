# SPDX-License-Identifier: Apache-2.0
"""The functions of the package: values against NumPy, operands of any kind, and refusals."""

import contextlib
import ctypes
import doctest
import importlib
import inspect
import itertools
import math
import os
import pickle
import re
import resource
import threading
from collections import deque
from collections.abc import Iterator
from decimal import Decimal
from fractions import Fraction
from pathlib import Path
from typing import Any

import numpy as np
import pytest
import tessaline
from hypothesis import given, settings
from hypothesis import strategies as st
from package_cases import CASES, DTYPES, Case, eps, is_complex, least, strong, values, wide
from tessaline import _native, _signatures
from tessaline._formulas import formula

SIZES = [0, 1, 2, 7, 17]


class Subclass(np.ndarray):
    """Of the kind that units and labelled arrays are."""


def reference(case: Case, operands: tuple[Any, ...]) -> tuple[Any, Any]:
    """The result in double precision, and the magnitude that its error bound scales with."""
    wides = [wide(each) if isinstance(each, np.ndarray) else each for each in operands]
    magnitudes = [abs(each) if isinstance(each, np.ndarray) else each for each in wides]
    of_magnitudes = case.reference if case.magnitude is None else case.magnitude
    return case.reference(*wides), of_magnitudes(*magnitudes)


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
@pytest.mark.parametrize("case", CASES, ids=lambda case: case.name)
def test_values_are_those_of_numpy_within_the_bound(case: Case, dtype: Any) -> None:
    for n in SIZES:
        operands = case.operands(n, dtype)
        if case.name.startswith("partial") and n == 0:
            continue
        expected, magnitude = reference(case, operands)
        result = getattr(tessaline, case.name)(*operands)
        assert np.shape(result) == np.shape(expected)
        if case.name != "norm":
            assert result.dtype == dtype
        error = np.abs(wide(result) - expected)
        bound = case.factor(n) * eps(dtype) * np.abs(magnitude)
        # Below the normal range the error of an operation is absolute.
        bound = bound + case.factor(n) * least(dtype)
        assert (error <= bound).all(), f"n {n}: error {error.max()}"


class Seven(float):
    def __float__(self) -> float:
        return 7.0


NUMBERS: list[Any] = [
    Seven(2.5),
    *(
        3,
        -2,
        2**53,
        2**53 + 1,
        0.1,
        -0.0,
        2.0**-149,
        1e-300,
        1 + 2**-11 + 2**-40,
        math.inf,
        math.nan,
    ),
    *(np.float32(0.1), np.float64(0.1), np.float16(3), np.int8(-3), True, np.array(0.1)),
    *(0.1 - 2j, np.complex64(3j), np.complex128(1e-50 + 1j)),
    *(tessaline.bfloat16.type(0.1), tessaline.complex32.type(0.1 - 3j)),
    *(1 + 2**-8 - 2**-40, 2**-25 + 2**-60, -1e-46, 65519.9999),
]


def same(a: Any, b: Any) -> bool:
    return type(a) is type(b) and np.asarray(a).tobytes() == np.asarray(b).tobytes()


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
def test_ordinary_calls_go_past_python_to_the_same_bits(
    dtype: Any, monkeypatch: pytest.MonkeyPatch
) -> None:
    x, a = values((6,), dtype, 1), strong(6, dtype)
    calls = [(case.name, case.operands(6, dtype)) for case in CASES]
    calls = [each for each in calls if each[0] not in ("matrix_power", "eye", "scale")]
    calls += [("scale", (x, 3)), ("vector_equal", (x, x)), ("is_unitary", (a,))]
    calls += [("eigvalsh", (a,)), ("logdet_positive_definite", (a,))]
    expected = [getattr(tessaline, name)(*operands, dtype=dtype) for name, operands in calls]
    monkeypatch.setattr(tessaline.Context, "_run", None)
    for (name, operands), long_way in zip(calls, expected):
        result = getattr(tessaline, name)(*operands)
        assert same(result, long_way), name
        if name not in ("vector_equal", "is_unitary", "norm", "conjugate"):
            out = np.empty_like(np.asarray(result))
            assert getattr(tessaline, name)(*operands, out=out) is out and same(out[()], result[()])


def test_what_only_claims_to_be_a_context_is_refused() -> None:
    class Claimed:
        __class__ = tessaline.Context
        _native = 5

    with pytest.raises(AttributeError):
        tessaline.add(np.ones(3), np.ones(3), context=Claimed())  # type: ignore[arg-type]


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
@pytest.mark.parametrize("number", NUMBERS, ids=repr)
def test_numbers_are_rounded_alike_on_both_ways(number: Any, dtype: Any) -> None:
    x = values((7,), dtype, 1)
    for function in (tessaline.scale, tessaline.divide):
        try:
            expected = function(x, number, dtype=dtype)
        except (OverflowError, TypeError) as refusal:
            with pytest.raises(type(refusal), match=re.escape(str(refusal))):
                function(x, number)
        else:
            assert same(function(x, number), expected)


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
@pytest.mark.parametrize("n", [1, 2, 6, 13])
def test_decompositions_reproduce_their_matrix(dtype: Any, n: int) -> None:
    a = strong(n, dtype)
    exact = wide(a)
    computed = tessaline._dtypes.computed_in(dtype)
    unit = 50 * n * eps(computed) * np.linalg.norm(exact)

    factor = tessaline.lu_factor(a)
    lower, upper = np.tril(wide(factor.factors), -1) + np.eye(n), np.triu(wide(factor.factors))
    swapped = exact.copy()
    for k, row in enumerate(factor.pivots):
        swapped[[k, row]] = swapped[[row, k]]
    assert np.abs(lower @ upper - swapped).max() <= unit

    b = values((n, 3), dtype, 9)
    for rhs in (b[:, 0], b, np.asfortranarray(b), b.view(Subclass)):
        x = tessaline.solve(a, rhs)
        assert type(x) is np.ndarray
        assert x.dtype == computed and x.shape == rhs.shape and x.flags.c_contiguous
        assert np.abs(exact @ wide(x) - wide(rhs)).max() <= unit * max(1, np.abs(wide(x)).max())
        again = pickle.loads(pickle.dumps(factor))
        assert all(np.array_equal(each.solve(rhs), x) for each in (factor, again))
        assert again.logdet() == factor.logdet()

    w, v = tessaline.eigh(a)
    assert not is_complex(w.dtype) and v.dtype == computed
    assert (np.diff(w) >= 0).all()
    assert np.abs(exact @ wide(v) - wide(v) * w).max() <= unit
    assert np.abs(wide(v).conj().T @ wide(v) - np.eye(n)).max() <= 50 * n * eps(computed)
    assert np.array_equal(tessaline.eigvalsh(a), w)

    values_, vectors = tessaline.eig(a)
    assert is_complex(values_.dtype) and is_complex(vectors.dtype)
    residual = exact @ wide(vectors) - wide(vectors) * wide(values_)
    assert np.abs(residual).max() <= unit
    principal = wide(tessaline.principal_eigenvector(a))
    assert np.linalg.norm(principal) == pytest.approx(1, abs=10 * n * eps(computed))
    rayleigh = np.vdot(principal, exact @ principal)
    # Power iteration ends with a step of 1e-5; the other rows select from the general solver.
    step = 1e-5 * np.linalg.norm(exact) if dtype == np.complex64 else 0
    assert np.linalg.norm(exact @ principal - rayleigh * principal) <= unit + step

    sign, logarithm = np.linalg.slogdet(exact)
    bound = 50 * n * eps(computed) * (1 + abs(logarithm))
    ours = tessaline.slogdet(a)
    assert abs(ours.sign - sign) <= bound and abs(ours.logabsdet - logarithm) <= bound
    assert abs(tessaline.logdet_positive_definite(a) - logarithm) <= bound
    assert abs(np.exp(complex(tessaline.logdet(a)) - logarithm) - sign) <= bound
    assert abs(factor.logdet() - tessaline.logdet(a)) == 0


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
def test_predicates_tell_true_from_false(dtype: Any) -> None:
    x = values((9,), dtype)
    assert tessaline.vector_equal(x, x.copy()) is True
    assert tessaline.vector_equal(x, x[:-1]) is False
    other = x.copy()
    other[4] = 2
    assert tessaline.vector_equal(x, other) is False
    assert tessaline.is_unitary(tessaline.eye(5, dtype)) is True
    assert tessaline.is_unitary(values((2, 3), dtype)) is False
    assert tessaline.is_unitary(np.full((2, 2), 1, dtype)) is False


FACTORS = ("lu_factor", "solve", "logdet")


@pytest.mark.parametrize("identifier", tessaline.operations())
def test_letters_stand_for_exactly_the_equalities_of_the_contract(identifier: str) -> None:
    record = tessaline.describe(identifier).record
    signature = _signatures.SIGNATURES[identifier.split(".")[1].split("@")[0]]
    function = getattr(tessaline, signature.name)
    assert all(f"\n    {name}: " in function.__doc__ for name in function.__kwdefaults__)
    letters = signature.letters()

    def named(node: Any) -> str:
        if node["kind"] == "operand_dimension":
            return letters[node["role"], node["axis"]]
        assert node["operator"] == "multiply"
        return "*".join(named(operand) for operand in node["operands"])

    axes = []
    for shape in record["shapes"]:
        written = [letter for (role, _), letter in sorted(letters.items()) if role == shape["role"]]
        # The contract knows a factorisation by its order alone.
        is_factor = signature.name in FACTORS and len(written) == 2
        assert len(set(written) if is_factor else written) == shape["rank"]
        axes += written[: shape["rank"]]
    assert set(signature.locations) == {shape["role"] for shape in record["shapes"]}
    if signature.in_place and signature.inputs:
        assert signature.inputs[-1] == signature.outputs[0]
    equalities = [each for each in record["constraints"] if each["relation"] == "equal"]
    for constraint in equalities:
        assert named(constraint["left"]) == named(constraint["right"])
    # Each equality takes away one of the sizes that a caller may choose, and letters are the rest.
    free = {letter for letter in axes if "*" not in letter}
    assert len(axes) - len(free) == len(equalities)


# Signatures with each input of as many axes as the one output has.
SHARED = [
    pytest.param(each, role, id=f"{each.name}-{role}")
    for each in _signatures.SIGNATURES.values()
    for role, letters in enumerate(each.inputs)
    if letters and [len(axes) for axes in each.outputs] == [len(letters)] and not each.in_place
]


@pytest.mark.parametrize(("signature", "role"), SHARED)
def test_an_output_may_be_an_input_where_the_signature_says_so(signature: Any, role: int) -> None:
    context = _native.Context(pinning_policy="disabled")
    operands = {i: np.ones((1,) * len(axes)) for i, axes in enumerate(signature.inputs)}
    if signature.name == "matrix_power":
        operands[1] = np.array(1, np.int32)
    bindings = {**operands, _signatures.OUTPUT: operands[role]}
    overlap = pytest.raises(ValueError, match=f"Output0 overlaps Input{role}")
    with contextlib.nullcontext() if signature.elementwise else overlap:
        context.execute(signature.id, bindings, signature.locations)


# Copies in all the ways in which an array can lie in memory.
LAYOUTS = {
    "same": lambda a: a,
    "strided": lambda a: np.repeat(a, 2, axis=-1)[..., ::2] if a.ndim else a,
    "reversed": lambda a: np.flip(np.flip(a).copy()) if a.ndim else a,
    "fortran": lambda a: np.asfortranarray(a) if a.ndim else a,
    "read-only": lambda a: np.frombuffer(a.tobytes(), a.dtype).reshape(a.shape),
    "swapped": lambda a: a.astype(a.dtype.newbyteorder()) if a.dtype.kind in "fc" else a,
    "subclass": lambda a: a.view(Subclass),
    "misaligned": lambda a: np.frombuffer(b"x" + a.tobytes(), a.dtype, offset=1).reshape(a.shape),
}


@settings(max_examples=150, deadline=None, derandomize=True)
@given(
    case=st.sampled_from([case for case in CASES if case.name != "eye"]),
    dtype=st.sampled_from(DTYPES),
    n=st.integers(1, 9),
    layouts=st.tuples(st.sampled_from(sorted(LAYOUTS)), st.sampled_from(sorted(LAYOUTS))),
)
def test_bits_do_not_depend_on_how_operands_lie(
    case: Case, dtype: Any, n: int, layouts: tuple[str, str]
) -> None:
    operands = case.operands(n, dtype)
    function = getattr(tessaline, case.name)
    expected = function(*operands)
    laid = [
        LAYOUTS[layout](each) if isinstance(each, np.ndarray) else each
        for each, layout in zip(operands, layouts)
    ]
    result = function(*laid)
    assert type(result) is type(expected) and result.tobytes() == expected.tobytes()
    out = np.full(np.shape(expected), 7, expected.dtype)
    assert function(*laid, out=out) is out
    assert out.tobytes() == expected.tobytes()


def test_untyped_numbers_follow_the_arrays_beside_them() -> None:
    single = np.ones(2, np.float32)
    assert tessaline.add(single, [1, 2]).dtype == np.float32
    assert tessaline.add([1, 2], [3, 4j]).dtype == np.complex128
    typed = [np.array(3, dtype) for dtype in ("b", "h", "L", "e", "f", "d", "g", ">d", "bfloat16")]
    for number in (3, 3.0, Fraction(3), *typed, *(array[()] for array in typed)):
        for x in (single, single.astype(np.float16), single * 1j):
            scaled = tessaline.scale(x, number)
            assert scaled.dtype == x.dtype and np.array_equal(scaled, x * x.dtype.type(3))
    assert tessaline.scale(single, 2**70).tolist() == [2.0**70] * 2
    assert tessaline.divide(single * 1j, tessaline.norm(single)).dtype == np.complex64
    assert tessaline.scale([1, 2], 1j).dtype == np.complex128
    assert tessaline.add(single, np.ones(2, int), dtype=complex).dtype == np.complex128
    assert tessaline.matrix_power(np.eye(2), np.array(5)).tolist() == [[1, 0], [0, 1]]
    assert tessaline.norm(np.array([3, 4j])) == 5
    with np.errstate(all="raise"):
        assert tessaline.scale(single, 1e-300).tolist() == [0, 0]


@pytest.mark.parametrize(
    ("dtype", "number", "expected"),
    [
        ("float32", 2**70 + 2**46 + 1, 2**70 + 2**47),
        ("float32", Fraction(2**64 + 2**40 - 1, 2**40), 2**24),
        ("float32", Decimal(2**25 + 1) - Decimal("1e-20"), 2**25),
        ("complex64", 2**70 + 2**46 + 1, 2**70 + 2**47),
        ("float16", 2**15 + 2**4 + Fraction(1, 2**60), 2**15 + 2**5),
        ("float16", -(2**14) - 2**3 - 2.0**-30, -(2**14) - 2**4),
        ("bfloat16", 1 + 2**-8 + 2**-40, 1 + 2**-7),
        ("bfloat16", 2**40 + 2**32 + 1, 2**40 + 2**33),
        ("bfloat16", 1 + 3 * 2**-8 - 2**-40, 1 + 2**-7),
        ("complex32", 1 + 2**-11 + 2**-40, 1 + 2**-10),
        ("complex32", complex(3, -1 - 2**-11 - 2**-40), complex(3, -1 - 2**-10)),
    ],
)
def test_numbers_are_rounded_once(dtype: str, number: Any, expected: complex) -> None:
    ones = np.ones(1, tessaline._dtypes.from_word(dtype))
    assert wide(tessaline.scale(ones, number))[0] == expected


def test_results_may_overwrite_an_operand_where_that_is_safe() -> None:
    for name in ("add", "subtract", "multiply"):
        x, y = np.array([1.0, 2, 3]), np.array([4.0, 5, 6])
        expected = getattr(tessaline, name)(x, y)
        assert getattr(tessaline, name)(x, y, out=y) is y
        assert np.array_equal(y, expected)
    b = np.array([2.0, 4])
    assert tessaline.solve(2 * np.eye(2), b, out=b) is b
    assert b.tolist() == [1, 2]
    x = np.array([1 + 2j])
    assert tessaline.conjugate(x)[0] == 1 - 2j and x[0] == 1 + 2j
    assert tessaline.conjugate(x, out=x) is x and x[0] == 1 - 2j


def refusals() -> list[Any]:
    t, f4, f8 = tessaline, np.float32, np.float64
    x, m = np.ones(2), np.eye(2)
    memory, z, zm = np.ones(9), np.ones(9, complex), np.eye(2, dtype=complex)
    read_only = np.ones(2)
    read_only.flags.writeable = False
    masked = np.ma.masked_array(x)

    def factor() -> tessaline.LUFactor:
        return t.lu_factor(m)

    return [
        (lambda: t.add(x, np.ones(2, f4)), TypeError, "x is float64 and y is float32"),
        (lambda: t.matmul(m, m.astype(complex)), TypeError, "a is float64 and b is complex128"),
        (lambda: t.add(np.ones(2, int), x), TypeError, "x is int64, .* pass dtype="),
        (lambda: t.sum(np.array(["a"])), TypeError, "x is <U1"),
        (lambda: t.sum(x, dtype=int), TypeError, "dtype int64 is none of"),
        (lambda: t.sum(x * 1j, dtype=f4), TypeError, "imaginary part"),
        (lambda: t.scale(x, 1j), TypeError, "imaginary part"),
        (lambda: t.scale(x, np.complex64(1)), TypeError, "factor is complex64 .*imaginary part"),
        (lambda: t.scale(x, "2"), TypeError, "no numeric dtype"),
        (lambda: t.scale(x, x), ValueError, "factor has shape"),
        (lambda: t.scale(x.astype(np.float16), 1e6), OverflowError, "out of the range of float16"),
        (lambda: t.divide(x.astype(f4), f8(1e300)), OverflowError, "out of the range of float32"),
        (lambda: t.scale(x, 10**400), OverflowError, "factor is beyond the range"),
        (lambda: t.divide(x, -(10**5000)), OverflowError, "divisor is beyond the range"),
        (lambda: t.divide(x, Decimal("1e999")), OverflowError, "divisor is beyond the range"),
        (lambda: t.add(masked, x), TypeError, r"x is masked, .*\.filled"),
        (lambda: t.add(x, [1, np.ma.masked]), TypeError, "y is masked"),
        (lambda: t.matmul([(masked, x), [x, x]][0], m), TypeError, "a is masked"),
        (lambda: t.scale(x, np.ma.masked), TypeError, "factor is masked"),
        (lambda: t.solve(factor(), masked), TypeError, "b is masked"),
        (lambda: t.add(deque([1, np.ma.masked]), x), TypeError, "x is masked"),
        (lambda: t.add(x, x, out=masked), TypeError, "out is masked"),
        (lambda: t.add(x, np.ones(3)), ValueError, r"takes x\(n\), y\(n\) -> \(n\)"),
        (lambda: t.add(m, m), ValueError, r"x \(2, 2\)"),
        (lambda: t.matmul(m, np.ones((3, 2))), ValueError, r"b \(3, 2\)"),
        (lambda: t.eigh(np.ones((2, 3))), ValueError, r"a \(2, 3\)"),
        (lambda: t.partial_trace_left(np.eye(6), 4), ValueError, "order 4 .* divide .* 6"),
        (lambda: t.partial_trace_right(np.eye(6), 0), ValueError, "order 0"),
        (lambda: t.matrix_power(m, -1), ValueError, "exponent is negative"),
        (lambda: t.matrix_power(m, 1.5), TypeError, "integer"),
        (lambda: t.eye(-1), ValueError, "order -1"),
        (lambda: t.add(x, x, out=[0, 0]), TypeError, "out must be a NumPy array, not list"),
        (lambda: t.add(x, x, out=np.ones(2, f4)), TypeError, "out is float32, the result"),
        (lambda: t.add(x, x, out=np.ones(2, ">f8")), TypeError, "out is >f8"),
        (lambda: t.add(x, x, out=np.ones(3)), ValueError, r"out has shape \(3,\)"),
        (lambda: t.add(x, x, out=read_only), ValueError, "out is read-only"),
        (lambda: t.add(x, x, out=memory[:4:2]), ValueError, "out is not C-contiguous"),
        (lambda: t.transpose(m, out=np.eye(2, order="F")), ValueError, "not C-contiguous"),
        (lambda: t.matmul(m, m + 0, out=m), ValueError, "^matmul: out overlaps a$"),
        (lambda: t.add(memory[4:8], memory[:4], out=memory[1:5]), ValueError, "out overlaps x$"),
        (lambda: t.matrix_power(m, 2, out=m), ValueError, "out overlaps a"),
        (lambda: t.matrix_power(m, 2**40, out=m), ValueError, "out overlaps a$"),
        (lambda: t.sum(memory, out=memory[3:4].reshape(())), ValueError, "out overlaps x"),
        (lambda: t.eigh(m, out=m), TypeError, "tuple of 2 arrays"),
        (
            lambda: t.eigh(m, out=(memory[:2], memory[1:5].reshape(2, 2))),
            ValueError,
            r"out\[1\] overlaps out\[0\]",
        ),
        (lambda: t.eig(m, out=(z[:2], z[1:5].reshape(2, 2))), ValueError, r"out\[0\] overlaps"),
        (lambda: t.eig(zm, out=(z[:2], zm)), ValueError, r"^eig: out\[1\] overlaps a$"),
        (lambda: t.conjugate(z[:4], out=z[1:5]), ValueError, "out overlaps x$"),
        (lambda: t.norm(z, out=z.view(f8)[:1].reshape(())), ValueError, "out overlaps x$"),
        (lambda: t.solve(m, x, out=m[0]), ValueError, "^solve: out overlaps a$"),
        (lambda: t.solve(m, memory[:2], out=memory[1:3]), ValueError, "out overlaps b$"),
        (lambda: t.Context(1).call("transpose", m, out=m), ValueError, "Output0 overlaps Input0"),
        (lambda: factor().solve(np.ones(3)), ValueError, r"b has shape \(3,\)"),
        (lambda: factor().solve(np.ones(2, f4)), TypeError, "a is float64 and b is float32"),
        (lambda: t.solve(factor(), x, dtype=f4), TypeError, "a factor of float64 .* float32"),
        (lambda: t.logdet(factor(), dtype=complex), TypeError, "a factor of float64 .* complex128"),
        (lambda: t.solve(factor(), x, context=1), TypeError, "must be a tessaline.Context"),
        (lambda: t.logdet(factor(), context=1), TypeError, "must be a tessaline.Context"),
        (lambda: t.add(x, x, context=1), TypeError, "must be a tessaline.Context"),
        (lambda: t.operations(1), TypeError, "must be a tessaline.Context"),
        (lambda: t.describe("nothing"), KeyError, "nothing"),
        (lambda: t.describe("tessaline.add@2"), KeyError, "add@2"),
        (lambda: t.Context().call("tessaline.nothing", x, out=x), KeyError, "nothing"),
        (lambda: t.Context(-1), ValueError, "thread_count must not be negative"),
        (lambda: t.Context(1, 2**70), ValueError, "min_parallel_work must not be that large"),
        (lambda: t.Context(1.5), TypeError, "integer"),
        (lambda: t.Context(os.cpu_count()), ValueError, r"\d is more than the \d+ possible here"),
        (lambda: t.Context(pinning_policy="always"), ValueError, "pinning_policy 'always' is none"),
        (lambda: t.Context(plugins=[b"/none"]), t.Error, "native plugin '/none'"),
        (lambda: t.Context(plugins=b"/none"), TypeError, "sequence of files"),
        (lambda: t.Context(catalogue=3), TypeError, "is no catalogue but int"),
        (
            lambda: pickle.dumps(t.Context(catalogue=t._native.ContextBuilder().build())),
            TypeError,
            "catalogue belongs to its process",
        ),
    ]


@pytest.mark.parametrize(("call", "error", "message"), refusals())
def test_refusals_say_what_is_wrong(call: Any, error: Any, message: str) -> None:
    with pytest.raises(error, match=message):
        call()


SOLVERS = ("lu_factor", "solve", "logdet", "slogdet", "logdet_positive_definite", "eig", "eigh",
           "eigvalsh", "principal_eigenvector")  # fmt: skip
HUGE = np.array([[1, 1], [1, -1]])


def failing() -> Iterator[Any]:
    """Solvers, matrices that they have no result for, and what they raise."""
    t = tessaline
    for dtype, name, number in itertools.product(DTYPES, SOLVERS, (np.nan, np.inf)):
        spoilt = np.array([[1, number], [number, 1]]).astype(dtype)
        yield name, spoilt, t.NonFiniteError, "non_finite"
    for name in ("lu_factor", "solve", "logdet"):
        yield name, np.zeros((2, 2)), t.SingularMatrixError, "singular"
        for dtype, most in (("f", 3e38), ("F", 3e38), ("d", 1e308), ("D", 1e308)):
            yield name, (HUGE * most).astype(dtype), t.SolverError, "solver_failure"
    for name in ("slogdet", "eigh", "eigvalsh", "eig"):
        yield name, HUGE * 1.7e308, t.SolverError, "solver_failure"
    yield "principal_eigenvector", (HUGE * 3e38).astype("F"), t.SolverError, "solver_failure"
    yield "logdet_positive_definite", -np.eye(2), t.SolverError, "solver_failure"
    for name in ("eigh", "eigvalsh", "logdet_positive_definite"):
        yield name, np.array([[1, 2], [0, 1.0]]), t.NumericalError, "not_hermitian"


def test_numerical_failures_are_numpys_and_ours() -> None:
    for name, matrix, error, reason in failing():
        operands = (matrix, np.ones(2, matrix.dtype)) if name == "solve" else (matrix,)
        with pytest.raises(error) as raised:
            getattr(tessaline, name)(*operands)
        failure = raised.value
        place = f"{name} of {matrix.dtype}: {failure}"
        assert type(failure) is error and isinstance(failure, np.linalg.LinAlgError), place
        assert isinstance(failure, tessaline.NativeError) and failure.reason == reason, place
        factored = name in ("solve", "logdet")
        assert failure.operation == f"tessaline.{'lu_factor' if factored else name}@1", place
        assert reason != "singular" or (failure.detail and failure.library == "CPU"), place
        again = pickle.loads(pickle.dumps(failure))
        assert type(again) is error and vars(again) == vars(failure) and str(again) == str(failure)


@pytest.mark.parametrize("dtype", DTYPES, ids=str)
def test_powers_of_any_exponent_are_exact_where_their_products_are(dtype: Any) -> None:
    cycle = np.roll(np.eye(5), 1, axis=0).astype(dtype)
    shear = np.array([[1, 1], [0, 1]]).astype(dtype)
    for exponent in (2**31 - 1, 2**31, 2**60 + 2**30 + 3, 3 * 2**100, 10**400):
        out = np.empty_like(cycle)
        assert tessaline.matrix_power(cycle, exponent, out=out) is out
        assert np.array_equal(wide(out), np.linalg.matrix_power(wide(cycle), exponent % 5))
        if exponent < 2**53:
            # Beyond the range of float16 this is one infinity, and no NaN of 0 times infinity.
            with np.errstate(over="ignore"):
                expected = np.array([[1, exponent], [0, 1]], wide(shear).dtype).astype(dtype)
            assert np.array_equal(tessaline.matrix_power(shear, exponent), expected)


def test_contexts_nest_and_belong_to_their_thread() -> None:
    from tessaline._context import current_context

    outer, inner = tessaline.Context(1), tessaline.Context(1, min_parallel_work=1)
    default = current_context()
    seen: list[Any] = []
    with outer:
        with inner, outer:
            assert current_context() is outer
        thread = threading.Thread(target=lambda: seen.append(current_context()))
        thread.start()
        thread.join()
        assert current_context() is outer and current_context(inner) is inner
    assert current_context() is default and seen == [default]

    def generator() -> Iterator[None]:
        with outer:
            yield

    suspended = generator()
    next(suspended)
    with inner:
        assert next(suspended, None) is None
        assert current_context() is inner
    assert current_context() is default


def test_contexts_show_what_they_are_and_pickle() -> None:
    context = tessaline.Context(plugins=[], min_parallel_work=np.int64(7), numa_policy="disabled")
    members = {name for name, _ in inspect.getmembers(context) if not name.startswith("_")}
    options = {"min_parallel_work", "numa_policy", "pinning_policy", "thread_count"}
    assert members == options | {"call", "catalogue"}
    again = pickle.loads(pickle.dumps(context))
    assert all(getattr(again, name) == getattr(context, name) for name in options)
    assert context.thread_count == max(len(os.sched_getaffinity(0)), 2) - 1
    assert eval(repr(context), {"Context": tessaline.Context}).min_parallel_work == 7


def test_threads_get_the_bits_of_one_thread() -> None:
    a, b = values((40, 40), np.dtype(np.float64), 1), values((40, 40), np.dtype(np.float64), 2)
    expected = tessaline.matmul(a, b, context=tessaline.Context(1))
    results: list[Any] = [None] * 4
    context = tessaline.Context(min_parallel_work=1)

    def work(index: int) -> None:
        for _ in range(50):
            results[index] = tessaline.matmul(a, b, context=context)

    threads = [threading.Thread(target=work, args=(index,)) for index in range(4)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert all(result.tobytes() == expected.tobytes() for result in results)


def test_memory_stays_flat_over_many_calls() -> None:
    x, m, singular = np.ones(64), strong(8, np.dtype(np.float64)), np.zeros((8, 8))

    def calls(count: int) -> int:
        for index in range(count):
            tessaline.add(x, x)
            tessaline.norm(x)
            if index % 10 == 0:
                tessaline.solve(m, m)
                tessaline.eigh(m)
                with pytest.raises(np.linalg.LinAlgError):
                    tessaline.solve(singular, m)
        return resource.getrusage(resource.RUSAGE_SELF).ru_maxrss

    before = calls(1_000)
    # 10,000 calls that each lost one array of 64 numbers would show as 5,000 KiB.
    assert calls(10_000) - before < 1_000


def test_large_operands_are_not_copied() -> None:
    x, y = np.ones(1 << 27, np.float32), np.ones(1 << 27, np.float32)
    before = resource.getrusage(resource.RUSAGE_SELF).ru_maxrss
    tessaline.add(x, y, out=x)
    # A copy of one operand would show as 524,288 KiB.
    assert resource.getrusage(resource.RUSAGE_SELF).ru_maxrss - before < 20_000
    assert x[0] == x[-1] == 2


@pytest.mark.parametrize(
    "module", ["", "._catalogue", "._context", "._decompositions", "._matrices", "._vectors"]
)
def test_examples_in_the_documentation_run(module: str) -> None:
    names = {**vars(tessaline), "np": np, "tessaline": tessaline}
    outcome = doctest.testmod(importlib.import_module(f"tessaline{module}"), extraglobs=names)
    assert outcome.attempted > 0 and outcome.failed == 0


ROOT = Path(__file__).resolve().parents[2]


@pytest.mark.parametrize("page", ["README.md", "docs/threads.md", "docs/read-a-numerics-record.md"])
def test_examples_of_the_pages_run(page: str) -> None:
    outcome = doctest.testfile(str(ROOT / page), module_relative=False)
    assert outcome.attempted > 0 and outcome.failed == 0


@pytest.mark.parametrize("page", ["architecture.md", "add-an-operation.md"])
def test_what_the_pages_name_is_in_the_code(page: str) -> None:
    tops = ("src", "include", "python", "scripts", "tests")
    files = [path for top in tops for path in (ROOT / top).rglob("*")]
    known = {part for path in files for part in (*path.parts, path.stem)}
    for path in files:
        if path.suffix in (".h", ".cpp", ".py", ".sh"):
            known.update(re.findall(r"\w+", path.read_text()))
    named = re.findall("`([^`\n]+)`", (ROOT / "docs" / page).read_text())
    words = {word for code in named for word in re.findall(r"\w+", code)}
    paths = {code for code in named if re.fullmatch(rf"({'|'.join(tops)})/[\w/.]+", code)}
    assert words and paths
    assert words - known == set()
    assert [path for path in paths if not (ROOT / path).exists()] == []


def test_descriptions_read_as_text_and_html() -> None:
    power = tessaline.describe("matrix_power")
    assert power.work() == ("max(n^2, n^3 log2(max(exponent, 1)))",)
    assert "matrix_power@1" in str(power) and "n^2 min(log2(max(exponent, 1)), 1)" in str(power)
    assert "Input1 (exponent): scalar, read" in str(power) and "float32, int32 ->" in str(power)
    assert "length(Output0) = rows(Input0)" in str(tessaline.describe("tessaline.matvec"))
    eig = tessaline.describe("eig")
    assert eig.signature == "a(n,n) -> (n), (n,n)"
    assert "Output0: eigenvalues and eigenvectors, write" in str(eig)
    html = tessaline.describe("vector_equal")._repr_html_()
    assert html.count("<tr>") == 8 and "-> ()" not in html and "-&gt; ()" in html


def _node(kind: str, *operands: Any) -> dict[str, Any]:
    return {"kind": kind, "operator": kind, "operands": list(operands)}


N, M = ({"kind": "operand_dimension", "role": 0, "axis": axis} for axis in (0, 1))
TWO = {"kind": "constant", "integer": 2}


@pytest.mark.parametrize(
    ("node", "text"),
    [
        (_node("multiply", _node("add", N, M), _node("power", N, TWO)), "(n + m) n^2"),
        (_node("power", _node("multiply", N, M), _node("add", N, TWO)), "(n m)^(n + 2)"),
        (_node("power", _node("power", N, M), TWO), "(n^m)^2"),
        (_node("divide", _node("multiply", TWO, N), _node("multiply", N, M)), "2 n / (n m)"),
        (_node("divide", N, _node("divide", M, TWO)), "n / (m / 2)"),
        (_node("add", _node("divide", N, M), _node("log2", N)), "n / m + log2(n)"),
        (_node("maximum", N, _node("minimum", M, TWO)), "max(n, min(m, 2))"),
        ({"kind": "operand_dimension", "role": 1 << 31, "axis": 1}, "columns(Output0)"),
        ({"kind": "operand_value", "role": 1}, "value(Input1)"),
        ({"kind": "symbol", "name": "iterations"}, "iterations"),
        ({"kind": "unknown"}, "unknown"),
    ],
)
def test_formulas_read_as_mathematics(node: Any, text: str) -> None:
    assert formula(node, {(0, 0): "n", (0, 1): "m"}) == text


def test_the_rounding_of_the_calling_thread_changes_no_bit() -> None:
    library = ctypes.CDLL("libm.so.6")
    a = np.arange(9.0).reshape(3, 3) / 7 + 0.1

    def results() -> list[Any]:
        return [
            tessaline.matmul(a, a),
            tessaline.matmul(a, a, dtype=np.float32),
            tessaline.scale(a[0].astype(np.float16), 0.1),
            tessaline.scale(a[0].astype(np.float32), 1 / np.sqrt(np.float64(2))),
            tessaline.divide([1.0, 2.0], Fraction(1, 3), dtype=np.float32),
            tessaline.eigvalsh(a + a.T),
        ]

    expected = results()
    upward = 0x800
    try:
        assert library.fesetround(upward) == 0
        found = results()
        assert library.fegetround() == upward
    finally:
        library.fesetround(0)
    assert [each.tobytes() for each in found] == [each.tobytes() for each in expected]
