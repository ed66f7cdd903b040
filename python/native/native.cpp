// SPDX-License-Identifier: Apache-2.0

// The definition of the extension module.

#include <nanobind/nanobind.h>

NB_MODULE(_native, module) {
    module.doc() = "Private native implementation for tessaline";
}
