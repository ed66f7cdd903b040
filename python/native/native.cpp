// SPDX-License-Identifier: Apache-2.0

// The definition of the extension module, and its entry.

#include "front_door.h"
#include "interrupts.h"
#include "module_facts.h"
#include "native_catalogue.h"
#include "native_context.h"
#include "native_errors.h"
#include "structured_operands.h"

#include "tessaline/backend/cpu/cpu_simd.h"

#include <nanobind/nanobind.h>

#include <vector>

namespace nb = nanobind;

// What nanobind makes of this is wrapped by PyInit__native below.
NB_MODULE(_native_contents, module) {
    static_cast<void>(Tessaline::cpu_simd_implementation()); // or an import that says why not
    Tessaline::Python::define_numeric_policies(module);
    module.doc() = "Private native implementation for tessaline";
    Tessaline::Python::find_main_thread();
    Tessaline::Python::define_native_error(module);
    Tessaline::Python::define_catalogue(module);
    Tessaline::Python::define_context(module);
    Tessaline::Python::define_structured_operands(module);
    Tessaline::Python::define_front_door(module);
    Tessaline::Python::define_machine_facts(module);
    // Reports of leaks go to stderr, where a program that merely ends with a daemon thread would
    // have them too. Python's development mode is where such reports are asked for.
    const nb::object flags = nb::module_::import_("sys").attr("flags");
    nb::set_leak_warnings(nb::cast<bool>(flags.attr("dev_mode")));
}

namespace {

constexpr const char* module_key = "tessaline._native";

/// The one module that this library makes: types and their registry are the process's. It may be
/// gone with its interpreter.
const PyObject* made = nullptr;
bool executed = false;

int (*execute_contents)(PyObject*) = nullptr;

/// The module of this interpreter, made at the first import. A later import, as after a change of
/// sys.modules, gets the same module again.
PyObject* create(PyObject* spec, PyModuleDef*) {
    PyObject* const interpreter = PyInterpreterState_GetDict(PyInterpreterState_Get());
    if (interpreter == nullptr) {
        return PyErr_NoMemory();
    }
    PyObject* const known = PyDict_GetItemString(interpreter, module_key);
    if (known != nullptr && known == made) {
        return Py_NewRef(known);
    }
    if (known != nullptr || made != nullptr) {
        PyErr_SetString(
            PyExc_ImportError,
            known != nullptr
                ? "tessaline was imported from another file before"
                : "tessaline serves one interpreter of a process, and another has had it");
        return nullptr;
    }
    PyObject* const name = PyObject_GetAttrString(spec, "name");
    PyObject* const module = name == nullptr ? nullptr : PyModule_NewObject(name);
    Py_XDECREF(name);
    if (module != nullptr && PyDict_SetItemString(interpreter, module_key, module) == 0) {
        made = module;
        return module;
    }
    Py_XDECREF(module);
    return nullptr;
}

int execute(PyObject* module) {
    if (executed) {
        return 0;
    }
    const int status = execute_contents(module);
    executed = status == 0;
    return status;
}

/// The slots of a definition with the two functions above in the place of its own.
PyModuleDef_Slot* slots_around(const PyModuleDef_Slot* own) {
    static std::vector<PyModuleDef_Slot> slots;
    slots.push_back({Py_mod_create, reinterpret_cast<void*>(create)});
    for (; own->slot != 0; ++own) {
        slots.push_back(*own);
        if (own->slot == Py_mod_exec) {
            execute_contents = reinterpret_cast<int (*)(PyObject*)>(own->value);
            slots.back().value = reinterpret_cast<void*>(execute);
        }
    }
    slots.push_back({0, nullptr});
    return slots.data();
}

} // namespace

extern "C" NB_EXPORT PyObject* PyInit__native() {
    PyObject* const definition = PyInit__native_contents();
    if (definition != nullptr && execute_contents == nullptr) {
        auto& fields = *reinterpret_cast<PyModuleDef*>(definition);
        fields.m_name = "_native";
        fields.m_slots = slots_around(fields.m_slots);
    }
    return definition;
}
