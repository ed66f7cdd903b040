// SPDX-License-Identifier: Apache-2.0
#include "native_errors.h"

#include "tessaline/catalogue/errors.h"

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

/// Raises NativeError, whose type is `type`, for a failure with a reason; any other exception
/// passes through to the next translator.
void translate_runtime_error(const std::exception_ptr& failure, void* type) {
    try {
        std::rethrow_exception(failure);
    } catch (const RuntimeError& error) {
        nb::object raised = nb::borrow(static_cast<PyObject*>(type))(error.what());
        nb::setattr(raised, "operation", nb::cast(error.operation().c_str()));
        nb::setattr(raised, "reason", nb::cast(error_reason_name(error.reason())));
        if (const auto* library_error = dynamic_cast<const BackendLibraryError*>(&error)) {
            nb::setattr(raised, "library", nb::cast(library_error->library().c_str()));
            nb::setattr(raised, "native_status", nb::cast(library_error->status()));
            nb::setattr(raised, "status_name", nb::cast(library_error->status_name().c_str()));
        } else if (const auto* solver_error = dynamic_cast<const SolverError*>(&error)) {
            nb::setattr(raised, "library", nb::cast(solver_error->library().c_str()));
            nb::setattr(raised, "native_status", nb::cast(solver_error->status()));
            nb::setattr(raised, "detail", nb::cast(solver_error->detail().c_str()));
        }
        PyErr_SetObject(static_cast<PyObject*>(type), raised.ptr());
    }
}

} // namespace

void define_native_error(nb::module_& module) {
    const nb::exception<NativeErrorTag> type(module, "NativeError", PyExc_RuntimeError);
    // The module keeps the type alive for as long as its functions can raise.
    nb::register_exception_translator(translate_runtime_error, type.ptr());
}

} // namespace Tessaline::Python
