// SPDX-License-Identifier: Apache-2.0
#pragma once

// Numbers of Python and NumPy as elements.

#include "tessaline/catalogue/data_type_descriptor.h"

#include <nanobind/nanobind.h>

namespace Tessaline::Python {

/// Writes a number, rounded to nearest, as an element of a floating policy. False, with nothing
/// promised of the element, for one that this takes no stand on: of another class than float,
/// complex, int and NumPy's floating scalars, beyond the range of the type, or complex beside real
/// elements.
bool store_number(nanobind::handle number, const DataTypeDescriptor& type, void* element);

} // namespace Tessaline::Python
