// SPDX-License-Identifier: Apache-2.0
#include "frontend/builtin_registrations.h"

#include "tessaline/backend/cpu/register_cpu.h"
#include "tessaline/catalogue/builtin_operations.h"

namespace Tessaline {

namespace {

RegistrationProvenance builtin_provenance() {
    return RegistrationProvenance::builtin(TESSALINE_VERSION);
}

} // namespace

OperationRegistry builtin_operations() {
    OperationRegistry operations;
    register_builtin_operations(operations, builtin_provenance());
    return operations;
}

BackendRegistry builtin_backends() {
    BackendRegistry backends;
    register_cpu_backends(backends, builtin_provenance());
    return backends;
}

BackendAdaptationRegistry builtin_adaptations() {
    BackendAdaptationRegistry adaptations;
    register_cpu_adaptations(adaptations);
    return adaptations;
}

} // namespace Tessaline
