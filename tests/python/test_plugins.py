# SPDX-License-Identifier: Apache-2.0
"""Native plugins from Python, with the plugin of the examples."""

import doctest
import os
import re
import subprocess
import sys
from pathlib import Path

import numpy as np
import pytest
import tessaline
from tessaline import NativeError, _native
from tessaline.__main__ import main

ROOT = Path(__file__).resolve().parents[2]
EXAMPLE = ROOT / "examples" / "plugin"
PAGE = ROOT / "docs" / "plugins.md"
EXPECTATION = "pauli.expectation@1"
PAULI = {
    "I": np.eye(2),
    "X": np.array([[0, 1], [1, 0]]),
    "Y": np.array([[0, -1j], [1j, 0]]),
    "Z": np.diag([1, -1]),
}


@pytest.fixture(scope="module")
def plugin(tmp_path_factory: pytest.TempPathFactory) -> Path:
    """The example, built by its own project against the packaged header."""
    build = tmp_path_factory.mktemp("plugin")
    include = f"-DTESSALINE_INCLUDE={tessaline.get_include()}"
    for words in (["-S", EXAMPLE, "-B", build, include], ["--build", build]):
        subprocess.run(["cmake", *map(str, words)], check=True, stdout=subprocess.DEVNULL)
    return build / "pauli.so"


@pytest.fixture(scope="module")
def context(plugin: Path) -> tessaline.Context:
    return tessaline.Context(plugins=[plugin])


def masks(string: str) -> tuple[np.int32, np.int32]:
    """The last letter acts on qubit 0, the lowest bit of an index."""
    x, z = (int("".join("01"[letter in word] for letter in string), 2) for word in ("XY", "ZY"))
    return np.int32(x), np.int32(z)


@pytest.mark.parametrize("dtype", [np.float32, np.complex64])
@pytest.mark.parametrize("string", ["Z", "Y", "XX", "YY", "XYZ", "IYI", "ZIXY", "YYYX"])
def test_expectation_is_that_of_the_matrix(context, string, dtype):
    random = np.random.default_rng(7)
    state = random.standard_normal(2 ** len(string)) + 1j * random.standard_normal(2 ** len(string))
    state = (state if dtype == np.complex64 else state.real).astype(dtype)
    matrix = np.eye(1)
    for letter in string:
        matrix = np.kron(matrix, PAULI[letter])
    exact = (state.conj() @ matrix @ state.astype(complex)).real
    found = context.call("pauli.expectation", state, *masks(string), out=np.empty((), np.float32))
    # The kernel sums in double and rounds once.
    assert abs(found - exact) <= np.finfo(np.float32).eps * np.vdot(state, state).real


def test_operation_is_listed_with_its_provenance(context, plugin, capsys):
    assert EXPECTATION in tessaline.operations(context)
    assert EXPECTATION not in tessaline.operations()
    record = tessaline.describe(EXPECTATION, context).record
    provenances = [each["provenance"] for each in record["implementations"]]
    assert [record["provenance"], *provenances] == ["plugin:pauli@1.0"] * 3
    assert main(["ops", "--plugin", str(plugin)]) == 0
    assert re.search(rf"^{EXPECTATION} +plugin:pauli@1.0$", capsys.readouterr().out, re.MULTILINE)
    assert main(["describe", EXPECTATION, "--plugin", str(plugin)]) == 0
    text = capsys.readouterr().out
    assert "Provided by\n  plugin:pauli@1.0" in text
    assert "Input1: scalar, read" in text and "float32, int32, int32 -> float32" in text
    assert main(["ops", "--plugin", str(plugin.with_name("none.so"))]) == 2
    assert "failed to load native plugin" in capsys.readouterr().err


def test_failures_are_those_of_the_package(context, plugin, tmp_path):
    state, out = np.ones(3, np.float32), np.empty((), np.float32)
    with pytest.raises(tessaline.Error, match=r"status 1: a state of n qubits has 2\^n") as failure:
        context.call(EXPECTATION, state, *masks("Z"), out=out)
    error = failure.value
    assert (error.operation, error.reason, error.library) == (
        EXPECTATION,
        "library_failure",
        "native plugin",
    )
    assert (error.native_status, error.status_name) == (1, "TESSALINE_STATUS_INVALID_ARGUMENT")
    with pytest.raises(tessaline.UnsupportedError):
        context.call(EXPECTATION, state.astype(np.float64), *masks("Z"), out=out)
    with pytest.raises(ValueError, match="binding count"):
        context.call(EXPECTATION, state, out=(out, out))
    with pytest.raises(KeyError, match="pauli.other"):
        context.call("pauli.other@1", state, out=out)
    with pytest.raises(tessaline.Error, match=f"^failed to load native plugin '{tmp_path}/none'"):
        tessaline.Context(plugins=[tmp_path / "none"])
    with pytest.raises(ValueError, match="already registered"):
        tessaline.Context(plugins=[plugin, plugin])
    with pytest.raises(TypeError, match="not both"):
        tessaline.Context(plugins=[plugin], catalogue=context.catalogue)
    with pytest.raises(TypeError, match="sequence of files"):
        tessaline.Context(plugins=str(plugin))


def test_bytes_that_are_not_utf8_keep_what_they_say(tmp_path):
    source = (EXAMPLE / "pauli.c").read_text()
    claim = "input contains a non-finite value"  # as a built-in solver says it
    for text, other in (('"1.0"', r'"1.\377"'), ('"a state of', rf'"\377 {claim} of')):
        assert source.count(text) == 1
        source = source.replace(text, other)
    (tmp_path / "pauli.c").write_text(source)
    plugin = tmp_path / os.fsdecode(b"\xff.so")
    command = ["cc", "-shared", "-fPIC", "-I", tessaline.get_include(), "pauli.c", "-o", plugin]
    subprocess.run(command, cwd=tmp_path, check=True)
    context = tessaline.Context(plugins=[plugin])
    assert tessaline.describe(EXPECTATION, context).record["provenance"] == "plugin:pauli@1.\ufffd"
    with pytest.raises(tessaline.Error, match=f"status 1: \ufffd {claim} of") as failure:
        context.call(EXPECTATION, np.ones(3, np.float32), *masks("Z"), out=np.empty((), np.float32))
    assert failure.value.reason == "library_failure"
    with pytest.raises(
        tessaline.Error, match=f"^failed to load native plugin '{tmp_path}/n\ufffd'"
    ):
        tessaline.Context(plugins=[tmp_path / os.fsdecode(b"n\xff")])
    with pytest.raises(ValueError, match="null"):
        _native.ContextBuilder().load_plugin(f"{tmp_path}/pauli.c\0")


@pytest.mark.parametrize(
    ("place", "array", "error", "message"),
    [
        ("out", np.zeros(4)[::2], ValueError, "output 0 is not C-contiguous"),
        ("out", np.broadcast_to(0.0, 2), ValueError, "output 0 is read-only"),
        ("out", np.zeros(17, np.uint8)[1:].view(float), ValueError, "output 0 is not aligned"),
        ("out", np.zeros(2, ">f8"), TypeError, "output 0 is >f8"),
        ("out", [0.0, 0.0], TypeError, "output 0 must be a NumPy array, not list"),
        ("out", np.zeros(2, int), TypeError, "output 0 is int64, which no operation takes"),
        ("out", np.ma.zeros(2), TypeError, r"output 0 is masked, .*\.data"),
        ("input", np.ma.ones(2), TypeError, r"input 0 is masked, .*\.filled"),
        ("input", [1.0, 1.0], TypeError, "input 0 must be a NumPy array, not list"),
        ("input", np.zeros(17, np.uint8)[1:].view(float), ValueError, "input 0 is not aligned"),
        ("input", np.ones(4, tessaline.bfloat16)[::2], ValueError, "input 0 is bfloat16 and not C"),
        ("input", np.array(["a", "b"]), TypeError, "input 0 is <U1, which no operation takes"),
        ("input", np.broadcast_to(1.0, 1 << 46), MemoryError, "Unable to allocate"),
    ],
)
def test_calls_refuse_arrays_that_cannot_serve(place, array, error, message):
    ones, out = np.ones(2), np.zeros(2)
    first, out = (ones, array) if place == "out" else (array, out)
    with pytest.raises(error, match=message):
        tessaline.Context().call("tessaline.add@1", first, ones, out=out)
    assert not np.any(out)


def test_native_builder_chains_and_a_failed_load_changes_nothing(plugin):
    builder = _native.ContextBuilder()
    with pytest.raises(RuntimeError, match="^failed to load native plugin '/none'"):
        builder.load_plugin("/none")
    assert builder.load_plugin(str(plugin)) is builder
    catalogue = builder.build()
    assert catalogue.contains_operation(EXPECTATION) and len(catalogue.operations()) == 33
    with pytest.raises(RuntimeError, match="builder has already been sealed"):
        builder.load_plugin(str(plugin))
    context = _native.Context(catalogue=catalogue)
    state = np.array([0, 3], np.float32)
    bindings = {0: state, 1: np.array(0, np.int32), 2: np.array(1, np.int32)}
    bindings[1 << 31] = np.empty((), np.float32)
    locations = dict.fromkeys(bindings, "host")
    assert context.execute(EXPECTATION, bindings, locations) == -9
    bindings[1] = np.array(2, np.int32)
    with pytest.raises(NativeError, match="does not have$") as failure:
        context.execute(EXPECTATION, bindings, locations)
    assert failure.value.status_name == "TESSALINE_STATUS_INVALID_ARGUMENT"


def test_the_page_is_the_example_and_works_as_it_says(tmp_path, monkeypatch):
    page = PAGE.read_text()
    source = "\n".join(re.findall(r"```c\n(.*?)```", page, re.DOTALL))
    assert source == (EXAMPLE / "pauli.c").read_text()
    (tmp_path / "pauli.c").write_text(source)
    monkeypatch.chdir(tmp_path)
    (command,) = re.findall(r"```sh\n(.*?)```", page, re.DOTALL)
    package = Path(tessaline.__file__).resolve().parents[1]
    command = command.replace("python3", f"PYTHONPATH={package} {sys.executable}")
    built = subprocess.run(["bash", "-c", command], capture_output=True, text=True)
    assert (built.returncode, built.stderr) == (0, "")
    outcome = doctest.testfile(str(PAGE), module_relative=False)
    assert outcome.attempted > 0 and outcome.failed == 0
