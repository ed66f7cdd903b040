# SPDX-License-Identifier: Apache-2.0
"""What the native module says of devices, here where no operation runs on one."""

import ctypes
import os
import subprocess
import sys

import numpy as np
import pytest
from tessaline import NativeError, _native


class Capsule(ctypes.Structure):
    """The head of an exchanged tensor of one float32 on device `device_id`."""

    _fields_ = [
        ("data", ctypes.c_void_p),
        ("device_type", ctypes.c_int32),
        ("device_id", ctypes.c_int32),
        ("rank", ctypes.c_int32),
        ("dtype_code", ctypes.c_uint8),
        ("dtype_bits", ctypes.c_uint8),
        ("dtype_lanes", ctypes.c_uint16),
        ("shape", ctypes.POINTER(ctypes.c_int64)),
        ("strides", ctypes.POINTER(ctypes.c_int64)),
        ("byte_offset", ctypes.c_uint64),
        ("manager", ctypes.c_void_p),
        ("deleter", ctypes.c_void_p),
    ]


class CudaArray:
    """One float32 that claims to lie on a CUDA device; nothing reads it."""

    def __init__(self, device_id=0):
        self.shape = (ctypes.c_int64 * 1)(1)
        self.tensor = Capsule(
            data=64, device_type=2, device_id=device_id, rank=1, dtype_code=2, dtype_bits=32,
            dtype_lanes=1, shape=self.shape,
        )  # fmt: skip

    def __dlpack__(self, **_):
        new = ctypes.pythonapi.PyCapsule_New
        new.restype = ctypes.py_object
        new.argtypes = [ctypes.c_void_p, ctypes.c_char_p, ctypes.c_void_p]
        return new(ctypes.addressof(self.tensor), b"dltensor", None)

    def __dlpack_device__(self):
        return (2, self.tensor.device_id)


def test_a_context_of_the_cpu_has_no_device():
    context = _native.Context(external_stream=7, scheduling="no such word")
    context.synchronise()
    with pytest.raises(ValueError, match="^CUDA operation requires a device-specific Context$"):
        _ = context.cuda_stream
    with pytest.raises(ValueError, match="^CUDA array requires a device-specific Context$"):
        context.await_binding(CudaArray())
    with pytest.raises(TypeError):
        context.await_binding(np.zeros(1, np.float32))
    with pytest.raises(ValueError, match="CUDA binding requires a device-specific Context$"):
        one = np.ones(1, np.float32)
        out = 1 << 31
        context.execute(
            "tessaline.add@1",
            {0: CudaArray(), 1: one, out: one},
            {0: "cuda", 1: "host", out: "host"},
        )
    with pytest.raises(
        NativeError, match="^activate Python CUDA kernel device failed: "
    ) as failure:
        context.activate_cuda()
    assert failure.value.library == "CUDA runtime"
    assert failure.value.reason == "library_failure"


def test_the_families_are_named_whatever_the_machine_has():
    assert _native.available_backends() == ("cpu", "cuda")
    assert _native.cuda_is_available() == (_native.cuda_device_count() > 0)


@pytest.mark.skipif(_native.cuda_device_count() > 0, reason="this machine has a device")
def test_a_device_that_is_not_there_is_refused():
    with pytest.raises(RuntimeError, match="^GpuMemoryPool - cudaGetDeviceCount failed: ."):
        _native.Context(cuda_device=0)


def test_import_loads_no_cuda_library():
    script = (
        "import tessaline, numpy\n"
        "tessaline.add(numpy.ones(2), numpy.ones(2))\n"
        "print([line for line in open('/proc/self/maps') if 'libcu' in line])\n"
    )
    environment = os.environ | {"PYTHONPATH": os.pathsep.join(sys.path)}
    outcome = subprocess.run(
        [sys.executable, "-c", script], capture_output=True, text=True, env=environment
    )
    assert outcome.stdout == "[]\n", outcome.stderr
