# SPDX-License-Identifier: Apache-2.0
"""The generic execute of the native module: checks, failures and what it hands back."""

import gc
import threading

import ml_dtypes
import numpy as np
import pytest
from tessaline import NativeError, _native
from tessaline._dtypes import complex32

OUT = 1 << 31
ADD = "tessaline.add@1"


@pytest.fixture(scope="module")
def context():
    return _native.Context(pinning_policy="disabled")


def operands(*contents, dtype=np.float32):
    """Bindings and locations of two inputs and an output that holds nines."""
    a, b = (np.array(content, dtype) for content in contents)
    out = np.full(a.shape, 9, dtype)
    return {0: a, 1: b, OUT: out}, {0: "host", 1: "host", OUT: "host"}


def test_returns_the_callers_own_output(context):
    bindings, locations = operands([1, 2.5, -0.0], [3, 4, -0.0])
    result = context.execute(ADD, bindings, locations)
    assert result is bindings[OUT]
    assert result.tobytes() == np.array([4, 6.5, -0.0], np.float32).tobytes()
    empty, locations = operands([], [])
    assert context.execute(ADD, empty, locations).size == 0


def test_inputs_of_any_stride_work_through_a_copy(context):
    bindings, locations = operands([0, 0], [1, 1])
    bindings[0] = np.arange(4, dtype=np.float32)[::2]
    bindings[1].flags.writeable = False
    assert context.execute(ADD, bindings, locations).tolist() == [1, 3]


def refused_calls():
    def case(name, change, error, message, attributes=None):
        return pytest.param(change, error, message, attributes or {}, id=name)

    def without(key):
        return lambda call: [d.pop(key) for d in (call["bindings"], call["locations"])]

    def binding(key, value):
        return lambda call: call["bindings"].__setitem__(key, value)

    count = "Context.execute - binding count does not match operation"
    policies = (
        "array storage dtypes: bool, complex32, float16, bfloat16, float64, complex128, "
        "float32, int32, complex64"
    )
    uncompiled = (
        "Context.execute - uncompiled storage/compute dtype policy (compute={}); " + policies
    )
    floats = np.ones(2, np.float32)
    read_only = np.ones(2, np.float32)
    read_only.flags.writeable = False
    yield case(
        "not canonical",
        lambda call: call.__setitem__("operation", "tessaline.add"),
        ValueError,
        "OperationId::parse - expected canonical identifier 'name@major'",
    )
    yield case(
        "unknown operation",
        lambda call: call.__setitem__("operation", "tessaline.add@2"),
        IndexError,
        "TessalineContext - operation 'tessaline.add@2' is not registered",
    )
    yield case("too few", without(1), ValueError, count)
    yield case("too few locations", lambda call: call["locations"].pop(1), ValueError, count)
    yield case("too many", binding(7, floats), ValueError, count)
    yield case(
        "other role",
        lambda call: (
            without(1)(call),
            binding(7, floats)(call),
            call["locations"].update({7: "host"}),
        ),
        ValueError,
        "Context.execute - missing binding Input1",
    )
    yield case(
        "other location role",
        lambda call: (call["locations"].pop(OUT), call["locations"].update({7: "host"})),
        ValueError,
        "Context.execute - missing location for Output0",
    )
    yield case(
        "unknown location",
        lambda call: call["locations"].update({0: "disk"}),
        ValueError,
        "Context.execute - invalid location for Input0",
    )
    yield case(
        "device location",
        lambda call: call["locations"].update({0: "cuda"}),
        ValueError,
        "Context.execute - CUDA binding requires a device-specific Context",
    )
    yield case(
        "compute dtype without binding",
        lambda call: call["compute_dtypes"].update({5: "float32"}),
        ValueError,
        "Context.execute - compute dtype role has no binding",
    )
    yield case(
        "compute dtype of another policy",
        lambda call: call["compute_dtypes"].update({0: "float64"}),
        ValueError,
        uncompiled.format("float64"),
    )
    yield case("int64", binding(0, np.ones(2, np.int64)), ValueError, uncompiled.format("default"))
    yield case("list", binding(0, [1.0, 2.0]), ValueError, "host binding requires a NumPy ndarray")
    yield case(
        "rank three",
        binding(0, np.ones((2, 1, 1), np.float32)),
        ValueError,
        "Context.execute - array binding rank must be zero, one or two",
    )
    yield case(
        "bool vector",
        binding(OUT, np.ones(2, bool)),
        ValueError,
        "Context.execute - bool arrays are supported only for scalar outputs",
    )
    yield case(
        "bool input",
        binding(0, np.array(True)),
        ValueError,
        "Context.execute - bool scalar bindings must be writable",
    )
    yield case(
        "bool with another compute dtype",
        lambda call: (
            binding(OUT, np.array(True))(call),
            call["compute_dtypes"].update({OUT: "float32"}),
        ),
        ValueError,
        "Context.execute - bool outputs require int32 compute dtype",
    )
    yield case(
        "strided low precision",
        binding(0, np.ones(4, ml_dtypes.bfloat16)[::2]),
        ValueError,
        "low-precision binding requires aligned, native-endian contiguous storage and writable output",
    )
    yield case(
        "misaligned",
        binding(0, np.zeros(9, np.uint8)[1:].view(np.float32)),
        RuntimeError,
        "Context.execute - storage buffer type, alignment or count mismatch",
    )
    yield case(
        "read-only output",
        binding(OUT, read_only),
        RuntimeError,
        "Context.execute - Output0 is read-only",
    )
    casts = [
        (binding(0, np.ones(2, ">f4")), "Input0 is not in native byte order"),
        (binding(1, np.array([1, None])), "Input1 has a dtype that is no number"),
        (lambda call: call["locations"].update({0: b"host"}), "location for Input0 must be text"),
        (
            lambda call: call["compute_dtypes"].update({1: "\ud800"}),
            "compute dtype of Input1 must be text",
        ),
    ]
    for change, message in casts:
        yield case(message, change, RuntimeError, f"Context.execute - {message}")
    yield case(
        "length",
        binding(1, np.ones(3, np.float32)),
        ValueError,
        "OperationSpec - vector input size mismatch",
    )
    yield case(
        "matrix",
        binding(0, np.ones((2, 1), np.float32)),
        ValueError,
        "OperationSpec - first operand must be a vector",
    )
    yield case(
        "mixed dtypes",
        binding(0, np.ones(2, complex32)),
        NativeError,
        "BackendDispatcher::dispatch - no backend entry available",
        {"operation": "BackendDispatcher::dispatch", "reason": "no_backend_available"},
    )


@pytest.mark.parametrize(("change", "error", "message", "attributes"), list(refused_calls()))
def test_refused_calls_leave_the_output_as_it_was(context, change, error, message, attributes):
    bindings, locations = operands([1, 2], [3, 4])
    out = bindings[OUT]
    call = {
        "operation": ADD,
        "bindings": bindings,
        "locations": locations,
        "compute_dtypes": {},
    }
    change(call)
    with pytest.raises(error) as raised:
        context.execute(**call)
    assert type(raised.value) is error
    assert str(raised.value) == message
    for name, value in attributes.items():
        assert getattr(raised.value, name) == value
    assert not hasattr(raised.value, "detail")
    assert out.tolist() == [9, 9]


def test_fortran_ordered_outputs_land_in_a_temporary(context):
    # The package refuses such outputs; the native entry computes and loses the result.
    bindings, locations = operands([1, 2], [3, 4])
    out = np.full(4, 9, np.float32)
    bindings[OUT] = out[::2]
    context.execute(ADD, bindings, locations)
    assert out.tolist() == [9, 9, 9, 9]


def test_context_keeps_its_arguments_and_checks_its_words():
    context = _native.Context(1, min_parallel_work=5, numa_policy="disabled", scheduling="nonsense")
    assert (context.thread_count, context.min_parallel_work, context.cuda_device) == (1, 5, -1)
    assert _native.Context().thread_count == 0
    with pytest.raises(ValueError, match="^Context - invalid NUMA policy$"):
        _native.Context(numa_policy="Auto")
    with pytest.raises(ValueError, match="^Context - invalid thread-pinning policy$"):
        _native.Context(pinning_policy="")
    with pytest.raises(ValueError, match="exceeds selected CPU capacity"):
        _native.Context(thread_count=100_000)
    with pytest.raises(TypeError):
        _native.Context(thread_count=-1)
    with pytest.raises(TypeError):
        _native._Catalogue()


def test_policies_are_the_compiled_ones():
    policies = _native.numeric_policies()
    assert [(entry["dtype"], entry["compute_dtype"]) for entry in policies] == [
        ("complex32", "complex64"),
        ("float16", "float32"),
        ("bfloat16", "float32"),
        ("float64", "float64"),
        ("complex128", "complex128"),
        ("float32", "float32"),
        ("int32", "int32"),
        ("complex64", "complex64"),
    ]
    assert all(entry["default"] is True for entry in policies)


def test_threads_share_one_context(context):
    failures = []

    def accumulate(step):
        total = np.zeros(64, np.float32)
        increment = np.full(64, step, np.float32)
        for _ in range(300):
            context.execute(
                ADD, {0: total, 1: increment, OUT: total}, {0: "host", 1: "host", OUT: "host"}
            )
        if not (total == 300 * step).all():
            failures.append(step)

    threads = [threading.Thread(target=accumulate, args=(step,)) for step in (1, 2, 3)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()
    assert not failures


def test_calls_keep_no_reference_to_their_arrays(context):
    import sys

    bindings, locations = operands([1], [2])
    before = [sys.getrefcount(array) for array in bindings.values()]
    for _ in range(100):
        context.execute(ADD, bindings, locations)
        with pytest.raises(ValueError):
            context.execute(ADD, bindings, {0: "host", 1: "host", OUT: "disk"})
    gc.collect()
    assert [sys.getrefcount(array) for array in bindings.values()] == before
