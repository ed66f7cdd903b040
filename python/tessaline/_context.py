# SPDX-License-Identifier: Apache-2.0
"""Contexts: where operations run, with which threads."""

from __future__ import annotations

import operator
import os
import re
import threading
from collections.abc import Iterable
from contextvars import ContextVar
from types import TracebackType
from typing import Any, Literal, SupportsIndex, get_args

import numpy as np

from . import _native
from ._dtypes import WORDS, Dtype, bfloat16, complex32, from_word
from ._errors import UnsupportedError, error_from, is_from_python
from ._native import NativeError
from ._operands import refuse_mask
from ._signatures import OUTPUT, SIGNATURES, Signature

Policy = Literal["disabled", "auto", "strict"]

_OVERLAP = re.compile(r"Output(\d+) overlaps (Input|Output)(\d+)")

_lock = threading.RLock()


def _replace_lock() -> None:
    """In a forked child the lock's holder may be a thread that does not exist there."""
    global _lock
    _lock = threading.RLock()


os.register_at_fork(after_in_child=_replace_lock)

_catalogue: Any = None
_default: Context | None = None
#: The contexts of the enclosing ``with`` blocks, innermost last.
_entered: ContextVar[tuple[Context, ...]] = ContextVar("tessaline_contexts", default=())


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


def _check_kind(name: str, label: str, operand: Any, remedy: str) -> None:
    """Refuses what is neither an array without a mask nor a structured operand of the module."""
    if isinstance(operand, np.ndarray):
        refuse_mask(name, label, type(operand), remedy)
    elif not isinstance(operand, (_native.LUOperand, _native.EigenOperand)):
        raise TypeError(f"{name}: {label} must be a NumPy array, not {type(operand).__name__}")


def _check_array(name: str, label: str, operand: Any) -> None:
    """Refuses an array that the native module does not take, whatever the operation."""
    if not isinstance(operand, np.ndarray):
        return
    dtype, flags = operand.dtype, operand.flags
    if dtype not in WORDS and dtype.kind != "b":
        raise TypeError(f"{name}: {label} is {dtype}, which no operation takes")
    # The module copies an array of another order, but not one of a dtype foreign to NumPy.
    if dtype in (bfloat16, complex32) and not flags.c_contiguous:
        raise ValueError(f"{name}: {label} is {dtype} and not C-contiguous")
    if flags.c_contiguous and not flags.aligned:
        raise ValueError(f"{name}: {label} is not aligned")


def default_catalogue() -> Any:
    """The catalogue of the built-in operations, made once."""
    global _catalogue
    if _catalogue is None:
        with _lock:
            if _catalogue is None:
                _catalogue = _native.ContextBuilder().build()
    return _catalogue


def _catalogue_with(plugins: Iterable[str]) -> Any:
    """A catalogue of the built-in operations and those of plugins."""
    builder = _native.ContextBuilder()
    for plugin in plugins:
        try:
            builder.load_plugin(plugin)
        except RuntimeError as failure:
            error = error_from("load_plugin", failure)
            if error is None:
                raise
            raise error from None
    return builder.build()


def operation_id(operation: str, catalogue: Any) -> str:
    """The id that a catalogue has an operation under.

    `operation` is the id, the id without its version, which stands for the newest, or the bare name
    of a built-in one. Raises KeyError for an operation that the catalogue does not have.
    """
    known = SIGNATURES.get(operation)
    identifiers = catalogue.operations()
    wanted = known.id if known else operation
    if wanted in identifiers:
        return wanted
    versions = [each for each in identifiers if each.rpartition("@")[0] == wanted]
    if not versions:
        raise KeyError(f"no operation {operation!r}; tessaline.operations() lists them")
    return max(versions, key=lambda each: int(each.rpartition("@")[2]))


def _overlap_of_arguments(signature: Signature, message: str) -> str | None:
    """What the runtime says of the roles of overlapping operands, said of the arguments."""
    found = _OVERLAP.search(message)
    if found is None:
        return None
    outs = (
        [f"out[{i}]" for i in range(len(signature.outputs))] if signature.outputs[1:] else ["out"]
    )
    out, side, other = outs[int(found[1])], found[2], int(found[3])
    overlapped = outs[other] if side == "Output" else signature.names[other]
    return f"{signature.name}: {out} overlaps {overlapped}"


def explained(signature: Signature, failure: Exception) -> Exception:
    """What people get for a failure of the native module: the failure itself or a better one."""
    if isinstance(failure, ValueError) and not is_from_python(failure):
        message = _overlap_of_arguments(signature, str(failure))
        if message is not None:
            return ValueError(message)
    return error_from(signature.id, failure) or failure


class Context:
    """Where operations run: a pool of threads, their placement and a catalogue.

    Pass one as ``context=`` to a function, or make it the current one of a block with ``with``.
    Contexts with the same options share their threads, which start at the first call that is
    large enough. One context may be used by several Python threads at once. The number of threads
    never changes a bit of a result. A pickled context is made anew where it is loaded.

    Args:
        thread_count: worker threads; 0 takes all CPUs of the process but one, which is left to
            the caller. With one thread all work stays on the calling thread.
        min_parallel_work: estimated scalar operations below which a call stays on the calling
            thread.
        pinning_policy: ``"disabled"`` leaves threads to the operating system, ``"auto"`` keeps
            each on one CPU where that can be done, ``"strict"`` raises where it cannot.
        numa_policy: whether threads follow the memory node of the operands; the same words.
        catalogue: the operations to offer; by default the built-in ones.
        plugins: files of native plugins, whose operations are offered beside the built-in ones.
            `call` runs them.

    Attributes:
        thread_count: how many threads share the work of a large call, never 0.
        min_parallel_work, pinning_policy, numa_policy, catalogue: as given.

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
        thread_count: SupportsIndex = 0,
        min_parallel_work: SupportsIndex = 32768,
        *,
        pinning_policy: Policy = "disabled",
        numa_policy: Policy = "auto",
        catalogue: Any = None,
        plugins: Iterable[str | bytes | os.PathLike[str]] = (),
    ) -> None:
        _require_words(pinning_policy=pinning_policy, numa_policy=numa_policy)
        if not isinstance(catalogue, (_native._Catalogue, type(None))):
            raise TypeError(f"Context: catalogue is no catalogue but {type(catalogue).__name__}")
        if isinstance(plugins, (str, bytes, os.PathLike)):
            raise TypeError("Context: plugins is a sequence of files")
        # A bare name would be searched in the folders of system libraries.
        self._plugins = tuple(os.path.abspath(os.fsdecode(plugin)) for plugin in plugins)
        if self._plugins:
            if catalogue is not None:
                raise TypeError("Context: give either a catalogue or plugins, not both")
            catalogue = _catalogue_with(self._plugins)
        self.catalogue = default_catalogue() if catalogue is None else catalogue
        self._wanted_threads = _count("thread_count", thread_count)
        self._native = self._open(
            _count("min_parallel_work", min_parallel_work), pinning_policy, numa_policy
        )
        self.pinning_policy = pinning_policy
        self.numa_policy = numa_policy
        # The catalogue is sealed, so what it once said about ids and result dtypes stays true.
        self._ids: dict[str, str] = {}
        self._result_dtypes: dict[tuple[Signature, tuple[Dtype, ...]], tuple[Dtype, ...]] = {}

    def _open(self, work: int, pinning_policy: Policy, numa_policy: Policy) -> _native.Context:
        def opened(threads: int) -> _native.Context:
            return _native.Context(
                threads,
                work,
                pinning_policy=pinning_policy,
                numa_policy=numa_policy,
                catalogue=self.catalogue,
            )

        try:
            return opened(self._wanted_threads)
        except ValueError:
            possible = opened(0)._worker_count
            if self._wanted_threads <= possible:
                raise
            raise ValueError(
                f"Context: thread_count {self._wanted_threads} is more than the {possible} "
                "possible here; one CPU of the process is left to the caller"
            ) from None

    @property
    def thread_count(self) -> int:
        """How many threads share the work of a large call."""
        return self._native._worker_count

    @property
    def min_parallel_work(self) -> int:
        """The estimated scalar operations below which a call stays on the calling thread."""
        return self._native.min_parallel_work

    def __repr__(self) -> str:
        return (
            f"Context(thread_count={self.thread_count}, "
            f"min_parallel_work={self.min_parallel_work}, "
            f"pinning_policy={self.pinning_policy!r}, numa_policy={self.numa_policy!r})"
        )

    def __reduce__(self) -> tuple[Any, ...]:
        if not self._plugins and self.catalogue is not default_catalogue():
            raise TypeError(
                "Context: a catalogue belongs to its process and cannot be pickled; name plugins="
            )
        # The CPUs may be others where the context is made anew, so 0 stays 0.
        counts = (self._wanted_threads, self.min_parallel_work)
        return _restored_context, (*counts, self.pinning_policy, self.numa_policy, self._plugins)

    def __enter__(self) -> Context:
        _entered.set((*_entered.get(), self))
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        value: BaseException | None,
        traceback: TracebackType | None,
    ) -> None:
        # A generator may leave its block while one is open that its caller entered later.
        entered = _entered.get()
        for index in reversed(range(len(entered))):
            if entered[index] is self:
                _entered.set(entered[:index] + entered[index + 1 :])
                break

    def _dtypes_of(self, signature: Signature, inputs: tuple[Dtype, ...]) -> tuple[Dtype, ...]:
        """The dtypes of an operation's results for inputs of these dtypes.

        Raises UnsupportedError where no implementation takes them.
        """
        key = (signature, inputs)
        known = self._result_dtypes.get(key)
        if known is None:
            known = self._infer(signature, inputs)
            self._result_dtypes[key] = known
        return known

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
            storage, _ = self._native._result_policy(signature.id, described, shape)
        except NativeError as failure:
            error = error_from(signature.id, failure)
            if error is None:
                raise
            raise error from None
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
        """Runs any operation of the catalogue by its id or name, such as one of a plugin.

        `inputs` and `out`, one array or a tuple of them, are what the operation takes: nothing is
        converted, so that the choice of an implementation stays the caller's. A scalar is an array
        of rank 0 or, as an input, a NumPy scalar. Returns `out`.

        Raises:
            KeyError: for an operation that the catalogue does not have.
            ValueError, TypeError: for operands that do not fit it, and for an array in `out` that
                cannot be written into as it lies or that overlaps another operand, but for an
                elementwise operation in place.
            Error: where no implementation takes them, and where the implementation fails.
        """
        identifier = self._ids.get(operation)
        if identifier is None:
            identifier = self._ids[operation] = operation_id(operation, self.catalogue)
        outputs = out if isinstance(out, tuple) else (out,)
        bindings = {}
        for index, operand in enumerate(inputs):
            operand = np.asarray(operand) if isinstance(operand, np.generic) else operand
            _check_kind(operation, f"input {index}", operand, ".filled(value)")
            bindings[index] = operand
        for index, output in enumerate(outputs):
            label = f"output {index}"
            _check_kind(operation, label, output, ".data")
            if isinstance(output, np.ndarray):
                check_writable(operation, label, output)
            bindings[OUTPUT + index] = output
        try:
            self._native.execute(identifier, bindings, dict.fromkeys(bindings, "host"))
        except (RuntimeError, ValueError) as failure:
            # Asked now, since a call that succeeds is worth its time.
            for role, operand in bindings.items():
                label = f"input {role}" if role < OUTPUT else f"output {role - OUTPUT}"
                _check_array(operation, label, operand)
            error = error_from(identifier, failure)
            if error is None:
                raise
            raise error from None
        return out

    def _run(self, signature: Signature, bindings: dict[int, Any]) -> None:
        """Executes an operation on operands by role."""
        try:
            self._native.execute(signature.id, bindings, signature.locations)
        except (RuntimeError, ValueError) as failure:
            error = explained(signature, failure)
            if error is failure:
                raise
            raise error from None


def _require_words(**policies: Any) -> None:
    for name, word in policies.items():
        if word not in get_args(Policy):
            known = ", ".join(map(repr, get_args(Policy)))
            raise ValueError(f"Context: {name} {word!r} is none of {known}")


def _count(name: str, value: SupportsIndex) -> int:
    """A number of the constructor, of any integer type."""
    count = operator.index(value)
    if not 0 <= count < 2**63:
        raise ValueError(f"Context: {name} must not be {'negative' if count < 0 else 'that large'}")
    return count


def _restored_context(
    thread_count: int, work: int, pinning: Policy, numa: Policy, plugins: tuple[str, ...]
) -> Context:
    return Context(thread_count, work, pinning_policy=pinning, numa_policy=numa, plugins=plugins)


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


#: Where functions of the package go first.
front_door = _native._FrontDoor(_entered, Context, current_context, explained)
