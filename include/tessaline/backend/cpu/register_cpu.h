// SPDX-License-Identifier: Apache-2.0
#pragma once

// What the CPU backend brings into a catalogue.

#include "tessaline/dispatch/backend_registry.h"

namespace Tessaline {

/// Registers every CPU implementation. Raises what cpu_simd_implementation and
/// BackendRegistry::register_backend do.
TESSALINE_API void register_cpu_backends(BackendRegistry& registry,
                                         const RegistrationProvenance& provenance);

/// Appends the adaptation rules between host layouts.
TESSALINE_API void register_cpu_adaptations(BackendAdaptationRegistry& adaptations);

} // namespace Tessaline
