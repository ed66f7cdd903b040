# SPDX-License-Identifier: Apache-2.0
"""The command line: ``tessaline``, or ``python -m tessaline``.

Exit status: 0 for success, 1 where good operands have no result (a singular matrix, no memory),
2 for a wrong command, file or operand, 130 when interrupted.
"""

from __future__ import annotations

import argparse
import cmath
import os
import signal
import sys
from collections.abc import Sequence
from pathlib import Path
from typing import Any

import numpy as np

import tessaline
from tessaline import _files, _native
from tessaline._dtypes import from_word
from tessaline._signatures import SIGNATURES, Signature

_NO_RESULT = 1
_WRONG_USE = 2
_INTERRUPTED = 128 + signal.SIGINT

#: Operands of functions that are no operands of the operation's signature.
_EXTRA = {"eye": ("n",), "partial_trace_left": ("order",), "partial_trace_right": ("order",)}


def main(words: Sequence[str] | None = None) -> int:
    try:
        arguments = _parser().parse_args(words)
        arguments.command(arguments)
        if sys.stdout is not None:  # as it is where the caller closed it
            sys.stdout.flush()
    except tessaline.Error as failure:
        return _complain(f"{failure} ({failure.reason})", _NO_RESULT)
    except MemoryError as failure:
        return _complain(str(failure) or "out of memory", _NO_RESULT)
    except BrokenPipeError:
        # The reader has seen enough; nothing is left to be flushed at exit.
        os.dup2(os.open(os.devnull, os.O_WRONLY), sys.stdout.fileno())
    except KeyboardInterrupt:
        return _INTERRUPTED
    except KeyError as failure:
        return _complain(failure.args[0], _WRONG_USE)
    except OSError as failure:
        place = failure.filename or "a file"
        return _complain(f"{place}: {failure.strerror or failure}", _WRONG_USE)
    except (ValueError, TypeError, OverflowError) as failure:
        return _complain(str(failure).replace("pass dtype=", "give --dtype"), _WRONG_USE)
    return 0


def _complain(message: str, status: int) -> int:
    if sys.stderr is not None:  # else print() would take the standard output
        print(f"tessaline: {message}", file=sys.stderr)
    return status


def _parser() -> argparse.ArgumentParser:
    as_module = Path(sys.argv[0]).name == "__main__.py"
    parser = argparse.ArgumentParser(
        prog="python -m tessaline" if as_module else "tessaline",
        description="Typed dense linear algebra with published numerics.",
    )
    parser.add_argument("--version", action="version", version=f"tessaline {tessaline.__version__}")
    commands = parser.add_subparsers(required=True, metavar="COMMAND")

    info = commands.add_parser("info", help="facts of this build and machine")
    info.set_defaults(command=_info)

    plugins = argparse.ArgumentParser(add_help=False)
    plugins.add_argument(
        "--plugin", metavar="FILE", action="append", default=[], help="load a native plugin, too"
    )

    ops = commands.add_parser("ops", help="list the operations", parents=[plugins])
    ops.set_defaults(command=_ops)

    describe = commands.add_parser("describe", help="what an operation promises", parents=[plugins])
    describe.add_argument("operation", metavar="OP", help="such as matmul or tessaline.matmul@1")
    describe.set_defaults(command=_describe)

    run = commands.add_parser(
        "run",
        help="run an operation on files",
        description="Runs an operation on arrays in files and on numbers.",
        epilog=f"Files: {', '.join(_files.SUFFIXES)}; file.npz:name takes one array of several.",
    )
    run.add_argument("operation", metavar="OP", choices=sorted(SIGNATURES), help="such as matmul")
    run.add_argument("inputs", metavar="INPUT", nargs="*", help="a file, or a number for a scalar")
    run.add_argument("-o", "--output", metavar="OUT", type=Path, help="else the result is printed")
    run.add_argument("--dtype", help="convert the operands first, for instance to float32")
    run.add_argument("--threads", type=int, default=0, help="worker threads; 0 chooses")
    run.set_defaults(command=_run)
    return parser


def _info(arguments: argparse.Namespace) -> None:
    facts = {**_native.build_info(), "numpy": np.__version__}
    facts["usable CPUs"] = len(os.sched_getaffinity(0))
    facts["dtypes"] = ", ".join(policy["dtype"] for policy in _native.numeric_policies())
    facts["operations"] = len(tessaline.operations())
    width = max(len(name) for name in facts)
    for name, value in facts.items():
        print(f"{name:{width}}  {value}")


def _ops(arguments: argparse.Namespace) -> None:
    context = _context_with(arguments.plugin)
    identifiers = tessaline.operations(context)
    width = max(len(identifier) for identifier in identifiers)
    for identifier in identifiers:
        description = tessaline.describe(identifier, context)
        print(f"{identifier:{width}}  {description.signature or description.record['provenance']}")


def _describe(arguments: argparse.Namespace) -> None:
    print(tessaline.describe(arguments.operation, _context_with(arguments.plugin)))


def _context_with(plugins: list[str]) -> tessaline.Context | None:
    try:
        return tessaline.Context(plugins=plugins) if plugins else None
    except tessaline.Error as failure:
        raise ValueError(str(failure)) from None


def _run(arguments: argparse.Namespace) -> None:
    signature = SIGNATURES[arguments.operation]
    names = signature.names + _EXTRA.get(signature.name, ())
    if len(arguments.inputs) != len(names):
        given = len(arguments.inputs)
        raise ValueError(f"{signature.name} takes {', '.join(names)}; {given} given")
    operands = [
        _operand(signature, index, name, text)
        for index, (name, text) in enumerate(zip(names, arguments.inputs))
    ]
    options: dict[str, Any] = {"context": tessaline.Context(thread_count=arguments.threads)}
    if arguments.dtype is not None:
        options["dtype"] = _dtype(arguments.dtype)
    if arguments.output is not None:
        _files.check_target(arguments.output, 1)
    results = _named(getattr(tessaline, signature.name)(*operands, **options))
    if arguments.output is not None:
        _files.save(arguments.output, results)
    else:
        for name, result in results.items():
            print(f"{name}:\n{result}" if len(results) > 1 else result)


def _dtype(word: str) -> Any:
    try:
        return from_word(word)
    except TypeError:
        raise TypeError(f"'{word}' is no dtype") from None


def _operand(signature: Signature, index: int, name: str, text: str) -> Any:
    rank = len(signature.inputs[index]) if index < len(signature.inputs) else 0
    if rank == 0:
        return _number(name, text)
    array = _files.load(text)
    # A text file knows rows and columns only: one of either is a vector where that is asked for.
    if rank == 1 and array.ndim == 2 and 1 in array.shape:
        return array.reshape(-1)
    return array


def _number(name: str, text: str) -> Any:
    for kind in (int, float, complex):
        try:
            number = kind(text)
        except ValueError:
            continue
        if kind is not int and cmath.isinf(number) and "inf" not in text.lower():
            raise OverflowError(f"{name} is too large")
        return number
    raise ValueError(f"{name} must be a number, not '{text}'")


def _named(result: Any) -> dict[str, Any]:
    """The arrays of a result by name."""
    if isinstance(result, tessaline.LUFactor):
        return {"factors": result.factors, "pivots": result.pivots}
    if isinstance(result, tuple):
        return dict(zip(type(result)._fields, result))  # type: ignore[attr-defined]
    return {"result": result}


if __name__ == "__main__":
    sys.exit(main())
