// SPDX-License-Identifier: Apache-2.0
#include "module_facts.h"

#include "execution/default_floating_environment.h"
#include "tessaline/backend/cpu/cpu_simd.h"
#include "tessaline/backend/cuda/cuda_device.h"
#include "tessaline/storage/numeric_policy.h"

namespace nb = nanobind;
using namespace nb::literals;

namespace Tessaline::Python {

namespace {

nb::tuple numeric_policies() {
    nb::list policies;
    for_each_numeric_policy([&policies](auto policy) {
        nb::dict entry;
        entry["dtype"] = scalar_metadata(policy.storage_type).name;
        entry["compute_dtype"] = scalar_metadata(policy.compute_type).name;
        entry["default"] = true;
        policies.append(entry);
    });
    return nb::tuple(policies);
}

nb::dict build_info() {
    nb::dict facts;
    facts["version"] = TESSALINE_VERSION;
    // No device code is part of the build yet.
    facts["cuda"] = false;
    facts["cuda_architectures"] = "";
    facts["cpu_simd"] = cpu_simd_implementation();
    facts["cpu_simd_compiled"] = cpu_simd_compiled();
    facts["nanobind_major"] = NB_VERSION_MAJOR;
    return facts;
}

nb::object call_in_default_environment(nb::handle function, const nb::args& arguments) {
    const DefaultFloatingEnvironment environment;
    return function(*arguments);
}

} // namespace

void define_numeric_policies(nb::module_& module) {
    module.def("numeric_policies", &numeric_policies,
               "The compiled pairs of storage and compute dtype.");
}

void define_machine_facts(nb::module_& module) {
    module
        .def(
            "available_backends", [] { return nb::make_tuple("cpu", "cuda"); },
            "The families of backends that the system knows, whatever this machine has.")
        .def(
            "cuda_is_available", [] { return cuda_device_count() > 0; },
            "Whether this process sees a CUDA device.")
        .def("cuda_device_count", &cuda_device_count,
             "The number of CUDA devices that this process sees.")
        .def("build_info", &build_info, "Facts of this build.")
        .def("_in_default_environment", &call_in_default_environment, "function"_a, "args"_a,
             "Call a function in the floating-point environment of operations.");
}

} // namespace Tessaline::Python
