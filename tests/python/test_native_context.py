# SPDX-License-Identifier: Apache-2.0
"""The generic execute of the native module: checks, failures and what it hands back."""

import gc
import sys

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


def without(key):
    return lambda call: [d.pop(key) for d in (call["bindings"], call["locations"])]


def binding(key, value):
    return lambda call: call["bindings"].__setitem__(key, value)


def location(key, value):
    return lambda call: call["locations"].__setitem__(key, value)


def compute(key, value):
    return lambda call: call["compute_dtypes"].__setitem__(key, value)


def operation(name):
    return lambda call: call.__setitem__("operation", name)


def all_of(*changes):
    return lambda call: [change(call) for change in changes]


def refused_calls():
    """What is changed of a good call, the error and its text; most begin with the function."""
    count = "binding count does not match operation"
    uncompiled = (
        "uncompiled storage/compute dtype policy (compute={}); array storage dtypes: bool, "
        "complex32, float16, bfloat16, float64, complex128, float32, int32, complex64"
    )
    low_precision = (
        "low-precision binding requires aligned, native-endian contiguous storage and writable "
        "output"
    )
    floats, flag = np.ones(2, np.float32), np.array(True)
    read_only = np.ones(2, np.float32)
    read_only.flags.writeable = False
    misaligned = np.zeros(9, np.uint8)[1:].view(np.float32)
    other_role = all_of(without(1), binding(7, floats), location(7, "host"))
    other_location = all_of(lambda call: call["locations"].pop(OUT), location(7, "host"))
    for change, message in [
        (without(1), count),
        (lambda call: call["locations"].pop(1), count),
        (binding(7, floats), count),
        (other_role, "missing binding Input1"),
        (other_location, "missing location for Output0"),
        (location(0, "disk"), "invalid location for Input0"),
        (location(0, "cuda"), "CUDA binding requires a device-specific Context"),
        (compute(5, "float32"), "compute dtype role has no binding"),
        (compute(0, "float64"), uncompiled.format("float64")),
        (binding(0, np.ones(2, np.int64)), uncompiled.format("default")),
        (binding(0, np.ones((2, 1, 1))), "array binding rank must be zero, one or two"),
        (binding(OUT, flag[None]), "bool arrays are supported only for scalar outputs"),
        (binding(0, flag), "bool scalar bindings must be writable"),
        (
            all_of(binding(OUT, flag), compute(OUT, "float32")),
            "bool outputs require int32 compute dtype",
        ),
    ]:
        yield change, ValueError, f"Context.execute - {message}"
    for change, message in [
        (binding(0, misaligned), "storage buffer type, alignment or count mismatch"),
        (binding(OUT, read_only), "Output0 is read-only"),
        (binding(0, np.ones(2, ">f4")), "Input0 is not in native byte order"),
        (binding(1, np.array([1, None])), "Input1 has a dtype that is no number"),
        (location(0, b"host"), "location for Input0 must be text"),
        (compute(1, "\ud800"), "compute dtype of Input1 must be text"),
    ]:
        yield change, RuntimeError, f"Context.execute - {message}"
    for change, message in [
        (
            operation("tessaline.add"),
            "OperationId::parse - expected canonical identifier 'name@major'",
        ),
        (binding(0, [1.0, 2.0]), "host binding requires a NumPy ndarray"),
        (binding(0, np.ones(4, ml_dtypes.bfloat16)[::2]), low_precision),
        (binding(1, np.ones(3, np.float32)), "OperationSpec - vector input size mismatch"),
        (binding(0, floats[None]), "OperationSpec - first operand must be a vector"),
    ]:
        yield change, ValueError, message
    unknown = "TessalineContext - operation 'tessaline.add@2' is not registered"
    yield operation("tessaline.add@2"), IndexError, unknown
    no_backend = "BackendDispatcher::dispatch - no backend entry available"
    yield binding(0, np.ones(2, complex32)), NativeError, no_backend


@pytest.mark.parametrize(("change", "error", "message"), list(refused_calls()))
def test_refused_calls_leave_the_output_as_it_was(context, change, error, message):
    bindings, locations = operands([1, 2], [3, 4])
    out = bindings[OUT]
    call = dict(operation=ADD, bindings=bindings, locations=locations, compute_dtypes={})
    change(call)
    with pytest.raises(error) as raised:
        context.execute(**call)
    assert type(raised.value) is error
    assert str(raised.value) == message
    if error is NativeError:
        assert raised.value.operation == "BackendDispatcher::dispatch"
        assert raised.value.reason == "no_backend_available"
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
    assert " ".join(f"{entry['dtype']}/{entry['compute_dtype']}" for entry in policies) == (
        "complex32/complex64 float16/float32 bfloat16/float32 float64/float64 "
        "complex128/complex128 float32/float32 int32/int32 complex64/complex64"
    )
    assert all(entry["default"] is True for entry in policies)


def test_calls_keep_no_reference_to_their_arrays(context):
    bindings, locations = operands([1], [2])
    before = [sys.getrefcount(array) for array in bindings.values()]
    for _ in range(100):
        context.execute(ADD, bindings, locations)
        with pytest.raises(ValueError):
            context.execute(ADD, bindings, {0: "host", 1: "host", OUT: "disk"})
    gc.collect()
    assert [sys.getrefcount(array) for array in bindings.values()] == before
