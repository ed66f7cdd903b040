// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the module tells of itself: compiled policies and facts of the build.

#include <nanobind/nanobind.h>

namespace Tessaline::Python {

void define_numeric_policies(nanobind::module_& module);
void define_machine_facts(nanobind::module_& module);

} // namespace Tessaline::Python
