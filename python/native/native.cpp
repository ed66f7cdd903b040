// SPDX-License-Identifier: Apache-2.0

// The definition of the extension module.

#include "module_facts.h"
#include "native_context.h"
#include "native_errors.h"

#include <nanobind/nanobind.h>

NB_MODULE(_native, module) {
    Tessaline::Python::define_numeric_policies(module);
    module.doc() = "Private native implementation for tessaline";
    Tessaline::Python::define_native_error(module);
    nanobind::class_<Tessaline::Python::NativeCatalogue>(module, "_Catalogue",
                                                         "A sealed catalogue of operations.");
    Tessaline::Python::define_context(module);
    Tessaline::Python::define_build_info(module);
}
