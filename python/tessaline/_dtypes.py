# SPDX-License-Identifier: Apache-2.0
"""Element types that NumPy itself does not have."""

import ml_dtypes
import numpy

#: A complex number of two float16 components, real part first, four bytes in all.
complex32 = numpy.dtype(ml_dtypes.complex32)
