# SPDX-License-Identifier: Apache-2.0
"""The functions of the package: values against NumPy, operands of any kind, and refusals."""

import doctest
import importlib
import pickle
import re
import resource
import threading
from pathlib import Path
from typing import Any

import numpy as np
import pytest
from hypothesis import given, settings
from hypothesis import strategies as st

import tessaline
from package_cases import CASES, DTYPES, Case, eps, is_complex, least, strong, values, wide
from tessaline import _signatures
from tessaline._formulas import formula

SIZES = [0, 1, 2, 7, 17]


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
    for rhs in (b[:, 0], b, np.asfortranarray(b)):
        x = tessaline.solve(a, rhs)
        assert x.dtype == computed and x.shape == rhs.shape and x.flags.c_contiguous
        assert np.abs(exact @ wide(x) - wide(rhs)).max() <= unit * max(1, np.abs(wide(x)).max())
        assert np.array_equal(factor.solve(rhs), x)

    w, v = tessaline.eigh(a)
    assert not is_complex(w.dtype) and v.dtype == computed
    assert (np.diff(w) >= 0).all()
    assert np.abs(exact @ wide(v) - wide(v) * w).max() <= unit
    assert np.abs(wide(v).conj().T @ wide(v) - np.eye(n)).max() <= 50 * n * eps(computed)
    assert np.array_equal(tessaline.eigvalsh(a), w)

    # The general solver promises its residual tolerance: see describe("eig").
    tolerance = 1e-3 if eps(computed) > 1e-10 else 2e-12
    values_, vectors = tessaline.eig(a)
    assert is_complex(values_.dtype) and is_complex(vectors.dtype)
    residual = exact @ wide(vectors) - wide(vectors) * wide(values_)
    assert np.abs(residual).max() <= tolerance * np.linalg.norm(exact)
    principal = wide(tessaline.principal_eigenvector(a))
    assert np.linalg.norm(principal) == pytest.approx(1, abs=10 * n * eps(computed))
    rayleigh = np.vdot(principal, exact @ principal)
    assert np.linalg.norm(exact @ principal - rayleigh * principal) <= 1e-3 * np.linalg.norm(exact)

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


def test_every_operation_has_a_function_and_a_signature_of_the_catalogue() -> None:
    for identifier in tessaline.operations():
        description = tessaline.describe(identifier)
        signature = _signatures.SIGNATURES[identifier.split(".")[1].split("@")[0]]
        assert callable(getattr(tessaline, signature.name))
        roles = {operand["role"] for operand in description.record["operands"]}
        assert set(signature.locations) == roles
        # A letter that stands for two axes must be an equality that the contract states.
        for shape in description.record["shapes"]:
            structured = signature.name in ("lu_factor", "solve", "logdet")
            if not structured:
                letters = [axis for role, axis in signature.letters() if role == shape["role"]]
                assert len(letters) == shape["rank"]


# Copies in all the ways in which an array can lie in memory.
LAYOUTS = {
    "same": lambda a: a,
    "strided": lambda a: np.repeat(a, 2, axis=-1)[..., ::2] if a.ndim else a,
    "reversed": lambda a: np.flip(np.flip(a).copy()) if a.ndim else a,
    "fortran": lambda a: np.asfortranarray(a) if a.ndim else a,
    "read-only": lambda a: np.frombuffer(a.tobytes(), a.dtype).reshape(a.shape),
    "swapped": lambda a: a.astype(a.dtype.newbyteorder()) if a.dtype.kind in "fc" else a,
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
    assert function(*laid).tobytes() == expected.tobytes()
    out = np.full(np.shape(expected), 7, expected.dtype)
    assert function(*laid, out=out) is out
    assert out.tobytes() == expected.tobytes()


def test_untyped_numbers_follow_the_arrays_beside_them() -> None:
    single = np.ones(2, np.float32)
    assert tessaline.add(single, [1, 2]).dtype == np.float32
    assert tessaline.add([1, 2], [3, 4j]).dtype == np.complex128
    for number in (3, 3.0, np.int64(3), np.array(3), np.float32(3)):
        assert tessaline.scale(single, number).tolist() == [3, 3]
        assert tessaline.scale(single, number).dtype == np.float32
    assert tessaline.add(single, np.ones(2, int), dtype=complex).dtype == np.complex128
    assert tessaline.matrix_power(np.eye(2), np.array(5)).tolist() == [[1, 0], [0, 1]]
    assert tessaline.norm(np.array([3, 4j])) == 5


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
    memory = np.ones(9)
    read_only = np.ones(2)
    read_only.flags.writeable = False
    hilbert = np.array([[1, 2], [0, 1.0]])
    return [
        (lambda: t.add(x, np.ones(2, f4)), TypeError, "x is float64 and y is float32"),
        (lambda: t.matmul(m, m.astype(complex)), TypeError, "a is float64 and b is complex128"),
        (lambda: t.add(np.ones(2, int), x), TypeError, "x is int64, .* pass dtype="),
        (lambda: t.sum(np.array(["a"])), TypeError, "x is <U1"),
        (lambda: t.sum(x, dtype=int), TypeError, "dtype int64 is none of"),
        (lambda: t.sum(x * 1j, dtype=f4), TypeError, "imaginary part"),
        (lambda: t.scale(x, 1j), TypeError, "imaginary part"),
        (lambda: t.scale(x, np.float32(1)), TypeError, "x is float64 and factor is float32"),
        (lambda: t.scale(x, x), ValueError, "factor has shape"),
        (lambda: t.scale(x.astype(np.float16), 1e6), OverflowError, "out of the range of float16"),
        (lambda: t.add(x, np.ones(3)), ValueError, r"takes x\(n\), y\(n\) -> \(n\)"),
        (lambda: t.add(m, m), ValueError, r"x \(2, 2\)"),
        (lambda: t.matmul(m, np.ones((3, 2))), ValueError, r"b \(3, 2\)"),
        (lambda: t.eigh(np.ones((2, 3))), ValueError, r"a \(2, 3\)"),
        (lambda: t.partial_trace_left(np.eye(6), 4), ValueError, "order 4 .* divide .* 6"),
        (lambda: t.partial_trace_right(np.eye(6), 0), ValueError, "order 0"),
        (lambda: t.matrix_power(m, -1), ValueError, "exponent -1 is negative"),
        (lambda: t.matrix_power(m, 2**31), OverflowError, "exceeds 2147483647"),
        (lambda: t.matrix_power(m, 1.5), TypeError, "integer"),
        (lambda: t.eye(-1), ValueError, "order -1"),
        (lambda: t.add(x, x, out=[0, 0]), TypeError, "out must be a NumPy array, not list"),
        (lambda: t.add(x, x, out=np.ones(2, f4)), TypeError, "out is float32, the result"),
        (lambda: t.add(x, x, out=np.ones(2, ">f8")), TypeError, "out is >f8"),
        (lambda: t.add(x, x, out=np.ones(3)), ValueError, r"out has shape \(3,\)"),
        (lambda: t.add(x, x, out=read_only), ValueError, "out is read-only"),
        (lambda: t.add(x, x, out=memory[:4:2]), ValueError, "out is not C-contiguous"),
        (lambda: t.transpose(m, out=np.eye(2, order="F")), ValueError, "not C-contiguous"),
        (lambda: t.matmul(m, m, out=m), ValueError, "out overlaps"),
        (lambda: t.add(memory[:4], memory[:4], out=memory[1:5]), ValueError, "out overlaps"),
        (lambda: t.sum(memory, out=memory[3:4].reshape(())), ValueError, "out overlaps"),
        (lambda: t.eigh(m, out=m), TypeError, "tuple of 2 arrays"),
        (lambda: t.eigh(m, out=(memory[:2], memory[1:5].reshape(2, 2))), ValueError, "overlaps"),
        (lambda: t.eigh(hilbert), ValueError, "symmetric/Hermitian"),
        (lambda: t.slogdet(np.full((1, 1), np.nan)), ValueError, "finite"),
        (lambda: t.lu_factor(m).solve(np.ones(3)), ValueError, r"b has shape \(3,\)"),
        (lambda: t.lu_factor(m).solve(np.ones(2, f4)), TypeError, "a is float64 and b is float32"),
        (lambda: t.add(x, x, context=1), TypeError, "must be a tessaline.Context"),
        (lambda: t.describe("nothing"), KeyError, "nothing"),
    ]


@pytest.mark.parametrize(("call", "error", "message"), refusals())
def test_refusals_say_what_is_wrong(call: Any, error: Any, message: str) -> None:
    with pytest.raises(error, match=message):
        call()


@pytest.mark.parametrize(
    ("call", "error", "operation", "reason"),
    [
        (lambda: tessaline.solve(np.zeros((2, 2)), np.ones(2)), tessaline.SingularMatrixError,
         "lu_factor", "singular"),
        (lambda: tessaline.logdet_positive_definite(-np.eye(2)), tessaline.SolverError,
         "logdet_positive_definite", "solver_failure"),
    ],
)
def test_numerical_failures_are_numpys_and_ours(
    call: Any, error: Any, operation: str, reason: str
) -> None:
    with pytest.raises(error) as raised:
        call()
    failure = raised.value
    assert isinstance(failure, np.linalg.LinAlgError)
    assert isinstance(failure, tessaline.NativeError)
    assert failure.operation == f"tessaline.{operation}@1" and failure.reason == reason
    assert failure.detail and failure.library == "CPU"
    again = pickle.loads(pickle.dumps(failure))
    assert type(again) is error and vars(again) == vars(failure) and str(again) == str(failure)


def test_failures_without_a_native_reason_are_errors_all_the_same() -> None:
    overflowing = np.array([[1e308, 1e308], [-1e308, 1e308]])
    with pytest.raises(tessaline.Error, match="non-finite LU pivot") as raised:
        tessaline.slogdet(overflowing)
    assert raised.value.reason == "runtime_failure" and raised.value.detail is None
    assert raised.value.operation == "tessaline.slogdet@1"


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
    with pytest.raises(ValueError, match="pinning"):
        tessaline.Context(pinning_policy="always")  # type: ignore[arg-type]


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
    "module",
    [
        "tessaline",
        "tessaline._catalogue",
        "tessaline._context",
        "tessaline._decompositions",
        "tessaline._matrices",
        "tessaline._vectors",
    ],
)
def test_examples_in_the_documentation_run(module: str) -> None:
    names = {**vars(tessaline), "np": np, "tessaline": tessaline}
    outcome = doctest.testmod(importlib.import_module(module), extraglobs=names)
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
    assert "length(Output0) = rows(Input0)" in str(tessaline.describe("tessaline.matvec@1"))
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
