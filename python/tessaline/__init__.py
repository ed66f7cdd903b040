# SPDX-License-Identifier: Apache-2.0
"""Typed dense linear algebra with published numerics.

Operations are contracts named by a versioned id such as ``tessaline.add@1``. At present they run
through ``tessaline._native.Context.execute``.
"""

from . import _native

NativeError = _native.NativeError
__version__: str = _native.build_info()["version"]

__all__ = ["NativeError", "__version__"]
