// SPDX-License-Identifier: Apache-2.0
#pragma once

// How native failures become Python exceptions.

#include <nanobind/nanobind.h>

#include <exception>
#include <stdexcept>

namespace Tessaline::Python {

/// A failure of the binding itself that arrives as NativeError without attributes.
class NativeErrorTag : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// A Python object that stands for no native value. It arrives as RuntimeError, and its text says
/// which object and why.
class CastError : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

/// Defines NativeError, a RuntimeError. Failures with a reason become one with the attributes
/// `operation` and `reason` and, by class, `library`, `native_status` and `status_name` or
/// `detail`. All other native exceptions become what nanobind's own rules make of their class.
/// Texts that are not UTF-8 are decoded with replacement characters.
void define_native_error(nanobind::module_& module);

/// The Python exception that a native one arrives as. Rethrows exceptions of Python and nanobind.
nanobind::object python_exception(const std::exception_ptr& failure);

} // namespace Tessaline::Python
