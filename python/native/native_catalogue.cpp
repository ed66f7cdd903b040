// SPDX-License-Identifier: Apache-2.0
#include "native_catalogue.h"

#include "catalogue_export.h"

#include "tessaline/frontend/tessaline_context_builder.h"

#include <nanobind/stl/string.h>
#include <nanobind/stl/string_view.h>

#include <algorithm>
#include <stdexcept>

namespace nb = nanobind;
using namespace nb::literals;

namespace Tessaline::Python {

namespace {

struct NativeContextBuilder {
    TessalineContextBuilder builder;
    bool built = false;
};

NativeCatalogue build(NativeContextBuilder& self) {
    if (self.built) {
        throw std::logic_error("ContextBuilder has already been built");
    }
    NativeCatalogue catalogue{std::make_shared<TessalineContext>(std::move(self.builder).build())};
    self.built = true;
    return catalogue;
}

bool contains_operation(const NativeCatalogue& self, std::string_view operation) {
    const auto ids = self.context->operations();
    return std::ranges::find(ids, OperationId::parse(operation)) != ids.end();
}

nb::tuple operations(const NativeCatalogue& self) {
    nb::list ids;
    for (const OperationId& id : self.context->operations()) {
        ids.append(id.canonical());
    }
    return nb::tuple(ids);
}

/// The path as the system has it: a text may stand for bytes that are not UTF-8. Raises ValueError
/// for a text with a null character.
std::string system_path(const nb::str& path) {
    PyObject* bytes = nullptr;
    if (PyUnicode_FSConverter(path.ptr(), &bytes) == 0) {
        throw nb::python_error();
    }
    const nb::object owner = nb::steal(bytes);
    return {PyBytes_AS_STRING(bytes), static_cast<std::size_t>(PyBytes_GET_SIZE(bytes))};
}

} // namespace

void define_catalogue(nb::module_& module) {
    nb::class_<NativeCatalogue>(module, "_Catalogue", "A sealed catalogue of operations.")
        .def("contains_operation", &contains_operation, "operation"_a,
             "Whether the catalogue holds an operation, named in canonical form.")
        .def("operations", &operations, "The ids of all operations, sorted.")
        .def(
            "describe",
            [](const NativeCatalogue& self, std::string_view operation) {
                return export_description(self.context->describe(OperationId::parse(operation)));
            },
            "operation"_a, "The contract and numerics of an operation as plain dictionaries.");

    nb::class_<NativeContextBuilder>(module, "ContextBuilder", "Builds a catalogue.")
        .def(nb::init<>())
        .def(
            "load_plugin",
            [](NativeContextBuilder& self, const nb::str& path) -> NativeContextBuilder& {
                self.builder.load_plugin(system_path(path));
                return self;
            },
            "path"_a, nb::rv_policy::none,
            "Add the operations of a native plugin; returns the builder itself.")
        .def("build", &build, "Seal the catalogue. A builder builds once.");
}

} // namespace Tessaline::Python
