# SPDX-License-Identifier: Apache-2.0
"""``python -m tessaline``: files in and out, messages and exit statuses."""

import os
import subprocess
import sys
from collections.abc import Callable
from pathlib import Path

import numpy as np
import pytest
import tessaline
from tessaline import _files, _matrix_market
from tessaline.__main__ import main

Command = Callable[..., tuple[int, str, str]]
EPSILON = np.finfo(np.float64).eps


@pytest.fixture
def command(
    tmp_path: Path, monkeypatch: pytest.MonkeyPatch, capsys: pytest.CaptureFixture[str]
) -> Command:
    """Runs a command line in a folder with a few files."""
    monkeypatch.chdir(tmp_path)
    matrix = np.array([[4.0, 1], [2, 3]])
    np.save("a.npy", matrix)
    np.savez("two.npz", a=matrix, b=matrix @ [1, 2])
    np.savez("one.npz", b=matrix @ [1, 2])
    Path("a.csv").write_text("4,1\n2,3\n")
    Path("row.csv").write_text("6,8\n")
    Path("b.csv").write_text("# right-hand side\n6\n8\n")
    Path("c.csv").write_text("1+2j,3\n")
    Path("bad.csv").write_text("1,2\n3,x\n")
    Path("ragged.csv").write_text("1,2\n3\n")
    Path("noise.npy").write_text("noise")
    Path("noise.npz").write_text("noise")
    np.save("single.npy", matrix.astype(np.float32))
    np.save("integers.npy", np.array([1, 2]))
    np.save("singular.npy", np.ones((2, 2)))
    Path("empty.csv").write_text("# nothing\n\n")
    np.savez_compressed("broken.npz", b=np.arange(1000.0))
    content = bytearray(Path("broken.npz").read_bytes())
    content[200:240] = bytes(40)
    Path("broken.npz").write_bytes(content)
    header = Path("a.npy").read_bytes()[:128]
    Path("huge.npy").write_bytes(header.replace(b"(2, 2)", b"(2, 9" + b"9" * 14 + b")", 1)[:128])

    def run(*words: str) -> tuple[int, str, str]:
        try:
            status = main(words)
        except SystemExit as stop:
            status = int(stop.code or 0)
        output, errors = capsys.readouterr()
        return status, output, errors

    return run


@pytest.mark.parametrize(
    ("words", "expected"),
    [
        ("solve a.npy b.csv", [1, 2]),
        ("solve a.csv row.csv", [1, 2]),
        ("solve two.npz:a two.npz:b", [1, 2]),
        ("solve a.npy one.npz", [1, 2]),
        ("matmul a.npy single.npy --dtype float32", [[18, 7], [14, 11]]),
        ("scale b.csv 0.5 --threads 1", [3, 4]),
        ("scale integers.npy 2 --dtype bfloat16", [2, 4]),
        ("matrix_power a.csv 0", [[1, 0], [0, 1]]),
        ("partial_trace_left a.csv 1", [[7]]),
        ("eye 2 --dtype complex64", [[1, 0], [0, 1]]),
        ("conjugate c.csv", [1 - 2j, 3]),
        ("conjugate c.csv --dtype complex32", [1 - 2j, 3]),
        ("sum b.csv", 14),
        ("vector_equal b.csv row.csv", True),
        ("eigvalsh singular.npy", [0, 2]),
    ],
)
@pytest.mark.parametrize("suffix", _files.SUFFIXES)
def test_results_survive_every_format(
    command: Command, words: str, expected: object, suffix: str
) -> None:
    status, output, errors = command("run", *words.split(), "-o", f"out{suffix}")
    assert (status, output, errors) == (0, "", "")
    result = np.reshape(_files.load(f"out{suffix}"), np.shape(expected))
    # Only the solver and the eigenvalues of order 2 round at all.
    difference = np.abs(np.subtract(result, expected, dtype=complex))
    assert difference.max() <= 5 * 2 * EPSILON * np.max(np.abs(expected))


def test_several_results_go_into_an_archive_by_name(command: Command) -> None:
    assert command("run", "eig", "a.npy", "-o", "out.npz") == (0, "", "")
    eigenvalues = np.sort(_files.load("out.npz:eigenvalues").real)
    assert np.abs(eigenvalues - [2, 5]).max() <= 5 * 2 * EPSILON * 5
    assert command("run", "lu_factor", "a.npy", "-o", "lu.npz") == (0, "", "")
    assert _files.load("lu.npz:pivots").tolist() == [0, 1]
    status, output, _ = command("run", "slogdet", "a.npy")
    assert status == 0 and output.startswith("sign:\n1.0\nlogabsdet:\n2.302585")


@pytest.mark.parametrize(
    ("words", "status", "message"),
    [
        ("run add b.csv none.csv", 2, "none.csv: No such file or directory"),
        ("run add b.csv bad.csv", 2, "bad.csv: could not convert string 'x'"),
        ("run add b.csv ragged.csv", 2, "ragged.csv: "),
        ("run add b.csv empty.csv", 2, "empty.csv: holds no numbers"),
        ("run eye 100000000", 1, "Unable to allocate"),
        ("run sum noise.npy", 2, "noise.npy: "),
        ("run sum noise.npz", 2, "noise.npz: "),
        ("run sum a.txt", 2, "a.txt: the suffix is none of .npy, .npz, .csv, .mtx"),
        ("run sum two.npz", 2, "it holds a, b"),
        ("run sum two.npz:c", 2, "it holds a, b"),
        ("run sum b.csv -o out.txt", 2, "out.txt: the suffix"),
        ("run eig a.npy -o out.npy", 2, "out.npy: 2 arrays need an .npz file"),
        ("run sum b.csv -o none/out.npy", 2, "none/out.npy: No such file"),
        ("run add b.csv", 2, "add takes x, y; 1 given"),
        ("run eye 0 -o out.csv", 2, "out.csv: a .csv file cannot hold the shape (0, 0)"),
        ("run scale b.csv 1e400", 2, "factor is too large"),
        (f"run matrix_power a.npy {'9' * 5000}", 2, "exponent is too large"),
        ("run scale b.csv two", 2, "factor must be a number, not 'two'"),
        ("run sum b.csv --dtype float31", 2, "'float31' is no dtype"),
        ("run sum integers.npy", 2, "x is int64, which no operation computes in; give --dtype"),
        ("run matmul a.npy single.npy", 2, "a is float64 and b is float32"),
        ("run sum b.csv --threads 9999", 2, "thread_count 9999 is more than the"),
        ("run sum broken.npz", 2, "broken.npz: "),
        ("run sum huge.npy", 2, "huge.npy: announces more numbers"),
        ("ops --plugin a.csv", 2, "failed to load native plugin"),
        ("run nothing b.csv", 2, "invalid choice: 'nothing'"),
        ("describe nothing", 2, "no operation 'nothing'"),
        ("", 2, "COMMAND"),
        ("run solve singular.npy b.csv", 1, "singular matrix at pivot 1 (singular)"),
        ("run logdet_positive_definite singular.npy", 1, "(solver_failure)"),
        ("run eigh a.npy", 1, "(not_hermitian)"),
    ],
)
def test_failures_say_what_is_wrong(
    command: Command, words: str, status: int, message: str
) -> None:
    got, output, errors = command(*words.split())
    assert (got, output) == (status, "")
    assert message in errors and "Traceback" not in errors


def test_the_catalogue_and_the_build_are_told(command: Command) -> None:
    status, output, _ = command("ops")
    assert status == 0 and len(output.splitlines()) == len(tessaline.operations())
    status, output, _ = command("describe", "matmul")
    assert status == 0 and output == f"{tessaline.describe('matmul')}\n"
    assert command("--version") == (0, f"tessaline {tessaline.__version__}\n", "")
    status, output, _ = command("info")
    assert status == 0 and tessaline.__version__ in output


@pytest.mark.parametrize("place", ["tessaline.sum", "argparse.ArgumentParser.parse_args"])
def test_an_interrupt_ends_without_a_traceback(
    command: Command, monkeypatch: pytest.MonkeyPatch, place: str
) -> None:
    def interrupted(*operands: object, **options: object) -> None:
        raise KeyboardInterrupt

    monkeypatch.setattr(place, interrupted)
    assert command("run", "sum", "b.csv") == (130, "", "")


@pytest.mark.parametrize("closes_output", [False, True])
def test_a_process_of_its_own_ends_cleanly(command: Command, closes_output: bool) -> None:
    # The native module complains at exit about objects that it still holds.
    words = [sys.executable, "-m", "tessaline", "run", "solve", "a.npy", "b.csv"]
    folder = str(Path(tessaline.__file__).resolve().parents[1])
    environment = {**os.environ, "PYTHONPATH": folder}
    outcome = subprocess.run(
        words,
        capture_output=True,
        text=True,
        env=environment,
        preexec_fn=(lambda: os.close(1)) if closes_output else None,
    )
    printed = "" if closes_output else "[1. 2.]\n"
    assert (outcome.returncode, outcome.stdout, outcome.stderr) == (0, printed, "")


@pytest.mark.parametrize(
    ("text", "expected"),
    [
        ("coordinate real general\n% nöte\n2 3 2\n1 1 1.5\n2 3 -2\n", [[1.5, 0, 0], [0, 0, -2]]),
        ("coordinate integer symmetric\n2 2 2\n1 1 3\n2 1 4\n", [[3, 4], [4, 0]]),
        ("coordinate pattern general\n1 2 1\n1 2\n", [[0, 1]]),
        ("coordinate complex hermitian\n2 2 2\n1 1 1 0\n2 1 0 5\n", [[1, -5j], [5j, 0]]),
        ("coordinate complex general\n1 1 1\n1 1 1 inf\n", [[complex(1, np.inf)]]),
        ("array real general\n0 0\n", np.zeros((0, 0))),
        ("array real symmetric\n2 2\n1\n2\n3\n", [[1, 2], [2, 3]]),
        ("array real skew-symmetric\n2 2\n2\n", [[0, -2], [2, 0]]),
        ("array real general\n2 3\n1 2 3 4 5 6\n", [[1, 3, 5], [2, 4, 6]]),
    ],
)
def test_matrix_market_forms(tmp_path: Path, text: str, expected: object) -> None:
    path = tmp_path / "x.mtx"
    path.write_text(f"%%MatrixMarket matrix {text}", encoding="latin-1")
    matrix = _matrix_market.read(path)
    assert np.array_equal(matrix, expected)
    _matrix_market.write(path, matrix)
    assert np.array_equal(_matrix_market.read(path), expected)


@pytest.mark.parametrize(
    ("text", "message"),
    [
        ("1 2\n", "no banner"),
        ("%%MatrixMarket matrix array quaternion general\n1 1\n1\n", "not known"),
        ("%%MatrixMarket matrix array real general\n2 2\n1\n2\n3\n", "3 numbers, 4 belong"),
        ("%%MatrixMarket matrix array real symmetric\n1 2\n1\n2\n", "has to be square"),
        ("%%MatrixMarket matrix coordinate real general\n1 1 1\n2 1 5\n", "no place in the 1 by"),
        ("%%MatrixMarket matrix coordinate real general\n9 9 1\n1.5 1 5\n", "no place in the 9"),
        ("%%MatrixMarket matrix coordinate real symmetric\n2 2 1\n1 2 5\n", "outside of the"),
        ("%%MatrixMarket matrix coordinate real skew-symmetric\n1 1 1\n1 1 5\n", "outside"),
        (f"%%MatrixMarket matrix coordinate real general\n{10**30} 1 0\n", "does not fit into mem"),
        ("%%MatrixMarket matrix coordinate real general\n1 1 2\n1 1 5\n", "2 entries were"),
        ("%%MatrixMarket matrix array real general\n1 1\nx\n", "'x' is no number"),
        ("%%MatrixMarket matrix array real general\n1 1\n1_0\n", "'1_0' is no number"),
        (f"%%MatrixMarket matrix array real general\n1 {'9' * 5000}\n", "a size of 5000 digits"),
        ("%%MatrixMarket matrix array real general\n1 -1\n", "size '-1' is no whole number"),
        (f"%%MatrixMarket matrix array real general\n{10**9} {10**9}\n1\n", "0 belong there"),
        ("%%MatrixMarket matrix array real general\n1\n", "ends before the line of sizes"),
    ],
)
def test_matrix_market_faults_name_the_file(tmp_path: Path, text: str, message: str) -> None:
    path = tmp_path / "x.mtx"
    path.write_text(text)
    with pytest.raises(ValueError, match=f"x.mtx: .*{message}"):
        _matrix_market.read(path)
