// SPDX-License-Identifier: Apache-2.0

// The definition of the extension module.

#include "module_facts.h"
#include "native_catalogue.h"
#include "native_context.h"
#include "native_errors.h"
#include "structured_operands.h"

#include <nanobind/nanobind.h>

NB_MODULE(_native, module) {
    Tessaline::Python::define_numeric_policies(module);
    module.doc() = "Private native implementation for tessaline";
    Tessaline::Python::define_native_error(module);
    Tessaline::Python::define_catalogue(module);
    Tessaline::Python::define_context(module);
    Tessaline::Python::define_structured_operands(module);
    Tessaline::Python::define_machine_facts(module);
}
