"""Private native implementation for tessaline"""

from typing import Annotated, overload

import numpy
from numpy.typing import NDArray


def numeric_policies() -> tuple:
    """The compiled pairs of storage and compute dtype."""

class NativeError(RuntimeError):
    operation: str
    reason: str
    library: str
    native_status: int
    status_name: str
    detail: str

class _Catalogue:
    """A sealed catalogue of operations."""

    def contains_operation(self, operation: str) -> bool:
        """Whether the catalogue holds an operation, named in canonical form."""

    def operations(self) -> tuple:
        """The ids of all operations, sorted."""

    def describe(self, operation: str) -> dict:
        """The contract and numerics of an operation as plain dictionaries."""

class ContextBuilder:
    """Builds a catalogue."""

    def __init__(self) -> None: ...

    def build(self) -> _Catalogue:
        """Seal the catalogue. A builder builds once."""

class Context:
    """An execution context."""

    def __init__(self, thread_count: int = 0, min_parallel_work: int = 32768, cuda_device: int = -1, stream_pool_size: int = 32, external_stream: int | None = None, numa_policy: str = 'auto', pinning_policy: str = 'auto', scheduling: str = 'auto', cross_device: str = 'reject', catalogue: _Catalogue | None = None) -> None: ...

    @property
    def thread_count(self) -> int: ...

    @property
    def min_parallel_work(self) -> int: ...

    @property
    def cuda_device(self) -> int: ...

    def synchronise(self) -> None:
        """Wait for the context's device work."""

    @property
    def cuda_stream(self) -> int:
        """The stream of the context's device work."""

    def activate_cuda(self) -> None:
        """Make the context's device the current one of this thread."""

    def await_binding(self, binding: Annotated[NDArray, dict(order='C', device='cuda', writable=False)]) -> None:
        """Check that an array lies on the context's device."""

    def execute(self, operation: str, bindings: dict, locations: dict, compute_dtypes: dict = {}) -> object: ...

    def _result_policy(self, operation: str, inputs: list, output_shape: tuple, output_dtype: str = '') -> tuple: ...

class LUOperand:
    """Host storage of an LU factorisation, in compute precision."""

    @overload
    def __init__(self, size: int, *, dtype: str = 'complex64', compute_dtype: str = '') -> None: ...

    @overload
    def __init__(self, values: object, *, dtype: str = '', compute_dtype: str = '') -> None: ...

    @property
    def dtype(self) -> str: ...

    @property
    def compute_dtype(self) -> str: ...

    @property
    def size(self) -> int: ...

    @property
    def pivots(self) -> Annotated[NDArray[numpy.int64], dict(shape=(None,), device='cpu')]: ...

    @property
    def factors(self) -> Annotated[NDArray, dict(device='cpu')]: ...

    @property
    def swaps(self) -> int: ...

class EigenOperand:
    """Host storage of eigenvalues and eigenvectors."""

    def __init__(self, size: int, *, dtype: str = 'complex64', compute_dtype: str = '') -> None: ...

    @property
    def dtype(self) -> str: ...

    @property
    def compute_dtype(self) -> str: ...

    @property
    def size(self) -> int: ...

    @property
    def values(self) -> Annotated[NDArray, dict(device='cpu')]: ...

    @property
    def vectors(self) -> Annotated[NDArray, dict(device='cpu')]: ...

class LUFactor:
    """The LU factorisation of one matrix."""

    def __init__(self, a: object, context: Context) -> None: ...

    @property
    def dtype(self) -> str: ...

    @property
    def compute_dtype(self) -> str: ...

    @property
    def size(self) -> int: ...

    def solve(self, rhs: Annotated[NDArray, dict(order='C', device='cpu')]) -> None:
        """Overwrite a right-hand side with the solution."""

    def logdet(self) -> object:
        """The logarithm of the determinant."""

def available_backends() -> tuple:
    """
    The families of backends that the system knows, whatever this machine has.
    """

def cuda_is_available() -> bool:
    """Whether this process sees a CUDA device."""

def cuda_device_count() -> int:
    """The number of CUDA devices that this process sees."""

def build_info() -> dict:
    """Facts of this build."""
