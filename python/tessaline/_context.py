# SPDX-License-Identifier: Apache-2.0
"""Contexts: where operations run, with which threads."""

from __future__ import annotations

import os
import threading
from collections.abc import Iterable
from contextvars import ContextVar
from types import TracebackType
from typing import Any, Literal

import numpy as np

from . import _native
from ._dtypes import INEXACT, WORDS, Dtype, from_word
from ._errors import UnsupportedError, error_from
from ._native import NativeError
from ._signatures import OUTPUT, Shape, Signature

Policy = Literal["disabled", "auto", "strict"]

#: Shapes and dtypes of the results of a call.
Results = tuple[tuple[Shape, ...], tuple[Dtype, ...]]

#: Of how many calls the results a context remembers.
_KNOWN_RESULTS = 4096

_lock = threading.RLock()
_catalogue: Any = None
_default: "Context | None" = None
#: The contexts of the enclosing ``with`` blocks, innermost last.
_entered: ContextVar[tuple["Context", ...]] = ContextVar("tessaline_contexts", default=())


def check_writable(name: str, label: str, array: np.ndarray[Any, Any]) -> None:
    """Refuses an array that a result cannot be written into as it lies."""
    if not array.flags.carray:
        for flag, fault in (
            ("writeable", "is read-only"),
            ("c_contiguous", "is not C-contiguous"),
            ("aligned", "is not aligned"),
        ):
            if not getattr(array.flags, flag):
                raise ValueError(f"{name}: {label} {fault}, so the result cannot be written there")


def _check_output(name: str, label: str, output: Any) -> None:
    """Refuses what a result cannot be written into. Structured operands of the module pass."""
    if isinstance(output, np.ndarray):
        check_writable(name, label, output)
    elif not isinstance(output, (_native.LUOperand, _native.EigenOperand)):
        raise TypeError(f"{name}: {label} must be a NumPy array, not {type(output).__name__}")


def _check_dtype(name: str, label: str, operand: Any) -> None:
    """Refuses an array that the native module takes for no array of numbers."""
    if isinstance(operand, np.ndarray) and operand.dtype not in INEXACT:
        dtype = operand.dtype
        if not (dtype.isbuiltin == 1 and dtype.kind in "biufc"):
            raise TypeError(f"{name}: {label} is {dtype}, which no operation takes")


def default_catalogue() -> Any:
    """The catalogue of the built-in operations, made once."""
    global _catalogue
    if _catalogue is None:
        with _lock:
            if _catalogue is None:
                _catalogue = _native.ContextBuilder().build()
    return _catalogue


def _catalogue_with(plugins: Iterable[str | os.PathLike[str]]) -> Any:
    """A catalogue of the built-in operations and those of plugins."""
    builder = _native.ContextBuilder()
    for plugin in plugins:
        # A bare name would be searched in the folders of system libraries.
        path = os.path.abspath(plugin)
        try:
            builder.load_plugin(path)
        except RuntimeError as failure:
            raise error_from("load_plugin", failure) from None
    return builder.build()


class Context(_native.Context):
    """Where operations run: a pool of threads, their placement and a catalogue.

    Pass one as ``context=`` to a function, or make it the current one of a block with ``with``.
    Contexts with the same options share their threads, which start at the first call that is
    large enough. One context may be used by several Python threads at once. The number of threads
    never changes a bit of a result.

    Args:
        thread_count: worker threads; 0 takes all CPUs of the process but one, which is left to
            the caller.
        min_parallel_work: estimated scalar operations below which a call stays on the calling
            thread.
        pinning_policy: ``"disabled"`` leaves threads to the operating system, ``"auto"`` keeps
            each on one CPU where that can be done, ``"strict"`` raises where it cannot.
        numa_policy: whether threads follow the memory node of the operands; the same words.
        catalogue: the operations to offer; by default the built-in ones.
        plugins: files of native plugins, whose operations are offered beside the built-in ones.
            `call` runs them.

    Raises:
        ValueError: for an unknown word, more threads than the machine has CPUs for, or a plugin
            that declares something wrong.
        Error: for a plugin that cannot be opened or that reports failure.

    >>> import numpy as np, tessaline
    >>> with tessaline.Context(thread_count=1):
    ...     tessaline.add(np.ones(2), np.ones(2))
    array([2., 2.])
    """

    def __init__(
        self,
        thread_count: int = 0,
        min_parallel_work: int = 32768,
        *,
        pinning_policy: Policy = "disabled",
        numa_policy: Policy = "auto",
        catalogue: Any = None,
        plugins: Iterable[str | os.PathLike[str]] = (),
    ) -> None:
        if isinstance(plugins, (str, os.PathLike)):
            raise TypeError("Context: plugins is a sequence of files")
        if plugins:
            if catalogue is not None:
                raise TypeError("Context: give either a catalogue or plugins, not both")
            catalogue = _catalogue_with(plugins)
        self.catalogue = catalogue if catalogue is not None else default_catalogue()
        super().__init__(
            thread_count,
            min_parallel_work,
            pinning_policy=pinning_policy,
            numa_policy=numa_policy,
            catalogue=self.catalogue,
        )
        self.pinning_policy = pinning_policy
        self.numa_policy = numa_policy
        # The catalogue is sealed, so what it once said about result dtypes stays true.
        self._result_dtypes: dict[tuple[Signature, tuple[Dtype, ...]], tuple[Dtype, ...]] = {}
        #: Shapes and dtypes of the results of calls that were made, by what they depend on.
        self.known_results: dict[tuple[Any, ...] | None, Results] = {}

    def __repr__(self) -> str:
        return (
            f"Context(thread_count={self.thread_count}, "
            f"min_parallel_work={self.min_parallel_work}, "
            f"pinning_policy={self.pinning_policy!r}, numa_policy={self.numa_policy!r})"
        )

    def __enter__(self) -> "Context":
        _entered.set((*_entered.get(), self))
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        _entered.set(_entered.get()[:-1])

    def result_dtypes(self, signature: Signature, inputs: tuple[Dtype, ...]) -> tuple[Dtype, ...]:
        """The dtypes of an operation's results for inputs of these dtypes.

        Raises UnsupportedError where no implementation takes them.
        """
        key = (signature, inputs)
        known = self._result_dtypes.get(key)
        if known is None:
            known = self._infer(signature, inputs)
            self._result_dtypes[key] = known
        return known

    def remember_results(self, description: tuple[Any, ...], results: Results) -> None:
        """Notes what a call gives. A program makes few calls that differ in shapes and dtypes."""
        if len(self.known_results) >= _KNOWN_RESULTS:
            self.known_results.clear()
        self.known_results[description] = results

    def _infer(self, signature: Signature, inputs: tuple[Dtype, ...]) -> tuple[Dtype, ...]:
        if len(signature.outputs) > 1:
            return self._infer_several(signature, inputs)
        # Only ranks matter, so any shape of the right rank does.
        described = [
            (*WORDS[dtype], (1,) * len(dimensions))
            for dtype, dimensions in zip(inputs, signature.inputs)
        ]
        shape = (1,) * len(signature.outputs[0])
        try:
            storage, _ = self._result_policy(signature.id, described, shape)
        except NativeError as failure:
            raise error_from(signature.id, failure) from None
        return (from_word(storage),)

    def _infer_several(self, signature: Signature, inputs: tuple[Dtype, ...]) -> tuple[Dtype, ...]:
        """The result policy answers for one output; several are read off the implementations."""
        words = [WORDS[dtype][0] for dtype in inputs]
        for implementation in self.catalogue.describe(signature.id)["implementations"]:
            operands = implementation["operands"]
            if [o["dtype"] for o in operands if o["role"] < OUTPUT] == words:
                return tuple(from_word(o["dtype"]) for o in operands if o["role"] >= OUTPUT)
        raise UnsupportedError(
            f"{signature.name} has no implementation for {', '.join(words)}",
            operation=signature.id,
            reason="no_backend_available",
        )

    def call(self, operation: str, *inputs: Any, out: Any) -> Any:
        """Runs any operation of the catalogue by its id, such as one of a plugin.

        `inputs` and `out`, one array or a tuple of them, are what the operation takes: nothing is
        converted, so that the choice of an implementation stays the caller's. A scalar is an array
        of rank 0 or, as an input, a NumPy scalar. Returns `out`.

        Raises:
            IndexError: for an operation that the catalogue does not have.
            ValueError, TypeError: for operands that do not fit it, and for an array in `out` that
                cannot be written into as it lies.
            Error: where no implementation takes them, and where the implementation fails.
        """
        outputs = out if isinstance(out, tuple) else (out,)
        bindings = {
            index: np.asarray(operand) if isinstance(operand, np.generic) else operand
            for index, operand in enumerate(inputs)
        }
        for index, output in enumerate(outputs):
            _check_output(operation, f"output {index}", output)
            bindings[OUTPUT + index] = output
        try:
            self.execute(operation, bindings, dict.fromkeys(bindings, "host"))
        except RuntimeError as failure:
            # Asked now, since a call that succeeds is worth its time.
            for role, operand in bindings.items():
                label = f"input {role}" if role < OUTPUT else f"output {role - OUTPUT}"
                _check_dtype(operation, label, operand)
            raise error_from(operation, failure) from None
        return out

    def run(self, signature: Signature, bindings: dict[int, Any]) -> Any:
        """Execute an operation on operands by role. Native failures become errors for people."""
        try:
            return self.execute(signature.id, bindings, signature.locations)
        except RuntimeError as failure:
            raise error_from(signature.id, failure) from None


def current_context(context: Context | None = None) -> Context:
    """The context given, else that of the innermost ``with``, else the default one.

    The default context is made at the first call, with pinning disabled: a library that its user
    did not configure has no business binding the caller's thread to a CPU.
    """
    if context is None:
        entered = _entered.get()
        context = entered[-1] if entered else _default or _make_default()
    elif not isinstance(context, Context):
        raise TypeError(f"context must be a tessaline.Context, not {type(context).__name__}")
    return context


def _make_default() -> Context:
    global _default
    with _lock:
        if _default is None:
            _default = Context()
    return _default
