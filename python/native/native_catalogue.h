// SPDX-License-Identifier: Apache-2.0
#pragma once

// Catalogues as Python builds and reads them.

#include "tessaline/frontend/tessaline_context.h"

#include <nanobind/nanobind.h>

#include <memory>

namespace Tessaline::Python {

/// A sealed catalogue, shared by the contexts that run on it.
struct NativeCatalogue {
    std::shared_ptr<TessalineContext> context;
};

/// Defines _Catalogue and ContextBuilder.
void define_catalogue(nanobind::module_& module);

} // namespace Tessaline::Python
