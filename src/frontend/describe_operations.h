// SPDX-License-Identifier: Apache-2.0
#pragma once

// Builds the published view of a catalogue.

#include "tessaline/catalogue/operation_description.h"
#include "tessaline/dispatch/backend_registry.h"

#include <vector>

namespace Tessaline {

/// One description for each operation, sorted by canonical text, each with its implementations in a
/// fixed order. Two equal catalogues give equal descriptions, whatever the order of their maps.
std::vector<OperationDescription> describe_operations(const OperationRegistry& operations,
                                                      const BackendRegistry& backends);

} // namespace Tessaline
