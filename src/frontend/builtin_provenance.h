// SPDX-License-Identifier: Apache-2.0
#pragma once

// The provenance of everything that comes with the runtime.

#include "tessaline/catalogue/registration_provenance.h"

namespace Tessaline {

inline RegistrationProvenance builtin_provenance() {
    return RegistrationProvenance::builtin(TESSALINE_VERSION);
}

} // namespace Tessaline
