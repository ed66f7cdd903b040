// SPDX-License-Identifier: Apache-2.0
#include "native_errors.h"

#include "text.h"

#include "tessaline/catalogue/errors.h"

#include <algorithm>
#include <new>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

void raise(PyObject* type, const char* text) {
    PyErr_SetObject(type, decoded(text).ptr());
}

void raise_native_error(PyObject* type, const RuntimeError& error) {
    nb::object raised = nb::borrow(type)(decoded(error.what()));
    nb::setattr(raised, "operation", decoded(error.operation()));
    nb::setattr(raised, "reason", decoded(error_reason_name(error.reason())));
    if (const auto* library_error = dynamic_cast<const BackendLibraryError*>(&error)) {
        nb::setattr(raised, "library", decoded(library_error->library()));
        nb::setattr(raised, "native_status", nb::cast(library_error->status()));
        nb::setattr(raised, "status_name", decoded(library_error->status_name()));
    } else if (const auto* solver_error = dynamic_cast<const SolverError*>(&error)) {
        nb::setattr(raised, "library", decoded(solver_error->library()));
        nb::setattr(raised, "native_status", nb::cast(solver_error->status()));
        nb::setattr(raised, "detail", decoded(solver_error->detail()));
    }
    PyErr_SetObject(type, raised.ptr());
}

template <typename Class>
bool is(const std::exception* error) {
    return dynamic_cast<const Class*>(error) != nullptr;
}

/// The class that nanobind raises for a standard exception.
PyObject* standard_class(const std::exception& error) {
    struct Rule {
        bool (*fits)(const std::exception*);
        PyObject* type;
    };
    const Rule rules[] = {
        {is<std::bad_alloc>, PyExc_MemoryError},       {is<std::domain_error>, PyExc_ValueError},
        {is<std::invalid_argument>, PyExc_ValueError}, {is<std::length_error>, PyExc_ValueError},
        {is<std::out_of_range>, PyExc_IndexError},     {is<std::range_error>, PyExc_ValueError},
        {is<std::overflow_error>, PyExc_OverflowError}};
    const auto* const rule =
        std::ranges::find_if(rules, [&error](const Rule& each) { return each.fits(&error); });
    return rule != std::end(rules) ? rule->type : PyExc_RuntimeError;
}

/// `type` is NativeError. What it cannot translate passes through to the next translator.
void translate(const std::exception_ptr& failure, void* type) {
    auto* const native_error = static_cast<PyObject*>(type);
    try {
        std::rethrow_exception(failure);
    } catch (const RuntimeError& error) {
        raise_native_error(native_error, error);
    } catch (const NativeErrorTag& error) {
        raise(native_error, error.what());
    } catch (const nb::builtin_exception&) {
        throw;
    } catch (const std::exception& error) {
        raise(standard_class(error), error.what());
    }
}

/// NativeError. The module keeps the type alive for as long as its functions can raise.
PyObject* native_error_type = nullptr;

} // namespace

nb::object python_exception(const std::exception_ptr& failure) {
    translate(failure, native_error_type);
    PyObject* type = nullptr;
    PyObject* value = nullptr;
    PyObject* traceback = nullptr;
    PyErr_Fetch(&type, &value, &traceback);
    PyErr_NormalizeException(&type, &value, &traceback);
    Py_XDECREF(type);
    Py_XDECREF(traceback);
    return nb::steal(value);
}

void define_native_error(nb::module_& module) {
    const nb::exception<NativeErrorTag> type(module, "NativeError", PyExc_RuntimeError);
    native_error_type = type.ptr();
    nb::register_exception_translator(translate, type.ptr());
}

} // namespace Tessaline::Python
