"""Private native implementation for tessaline"""

from collections.abc import Callable
from contextvars import ContextVar
from typing import Any, overload

from numpy import int64
from numpy.typing import NDArray


def numeric_policies() -> tuple[dict[str, Any], ...]:
    """The compiled pairs of storage and compute dtype."""

class NativeError(RuntimeError):
    operation: str
    reason: str
    library: str
    native_status: int
    status_name: str
    detail: str | None

class _Catalogue:
    """A sealed catalogue of operations."""

    def contains_operation(self, operation: str) -> bool:
        """Whether the catalogue holds an operation, named in canonical form."""

    def operations(self) -> tuple[str, ...]:
        """The ids of all operations, sorted."""

    def describe(self, operation: str) -> dict[str, Any]:
        """The contract and numerics of an operation as plain dictionaries."""

class ContextBuilder:
    """Builds a catalogue."""

    def __init__(self) -> None: ...

    def load_plugin(self, path: str) -> ContextBuilder:
        """Add the operations of a native plugin; returns the builder itself."""

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

    @property
    def _worker_count(self) -> int: ...

    def synchronise(self) -> None:
        """Wait for the context's device work."""

    @property
    def cuda_stream(self) -> int:
        """The stream of the context's device work."""

    def activate_cuda(self) -> None:
        """Make the context's device the current one of this thread."""

    def await_binding(self, binding: Any) -> None:
        """Check that an array lies on the context's device."""

    def execute(self, operation: str, bindings: dict[int, Any], locations: dict[int, str], compute_dtypes: dict[int, str] = {}) -> Any: ...

    def _result_policy(self, operation: str, inputs: list[tuple[str, str, tuple[int, ...]]], output_shape: tuple[int, ...], output_dtype: str = '') -> tuple[str, str]: ...

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
    def pivots(self) -> NDArray[int64]: ...

    @property
    def factors(self) -> NDArray[Any]: ...

    @property
    def swaps(self) -> int: ...

    def _solve_rows(self, context: Context, rows: NDArray[Any]) -> None:
        """Overwrite right-hand sides, one a row, with solutions."""

    def _set_swaps(self, swaps: int) -> None:
        """Complete factors that were copied into the views."""

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
    def values(self) -> NDArray[Any]: ...

    @property
    def vectors(self) -> NDArray[Any]: ...

class LUFactor:
    """The LU factorisation of one matrix."""

    def __init__(self, a: object, context: Context) -> None: ...

    @property
    def dtype(self) -> str: ...

    @property
    def compute_dtype(self) -> str: ...

    @property
    def size(self) -> int: ...

    def solve(self, rhs: NDArray[Any]) -> None:
        """Overwrite a right-hand side with the solution."""

    def logdet(self) -> object:
        """The logarithm of the determinant."""

class _PackageFunction:
    """One function of the package."""

class _FrontDoor:
    """The way of the package's functions."""

    def __init__(self, entered: ContextVar[tuple[Any, ...]], context_class: type, find_default: Callable[[], Any], explain: Callable[[Any, Exception], Exception]) -> None: ...

    def function(self, signature: Any, unusual: Callable[..., Any], real_result: bool = False) -> Callable[..., Any]:
        """A function of one signature, called by position."""

def available_backends() -> tuple[str, ...]:
    """
    The families of backends that the system knows, whatever this machine has.
    """

def cuda_is_available() -> bool:
    """Whether this process sees a CUDA device."""

def cuda_device_count() -> int:
    """The number of CUDA devices that this process sees."""

def build_info() -> dict[str, str | int]:
    """Facts of this build."""

def _in_default_environment(function: Callable[..., Any], *args: Any) -> Any:
    """Call a function in the floating-point environment of operations."""
