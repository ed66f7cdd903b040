// SPDX-License-Identifier: Apache-2.0
#include "tessaline/storage/numeric_policy.h"

#include <stdexcept>
#include <string>

namespace Tessaline {

void NumericPolicyDetail::fail_not_compiled(ScalarType storage, ScalarType compute) {
    throw std::invalid_argument(std::string("numeric policy is not compiled: ") +
                                scalar_metadata(storage).name + " / " +
                                scalar_metadata(compute).name);
}

bool is_compiled_policy(ScalarType storage, ScalarType compute) {
    bool found = false;
    for_each_numeric_policy([&](auto policy) {
        found = found || (storage == policy.storage_type && compute == policy.compute_type);
    });
    return found;
}

bool is_compiled_complex_policy(ScalarType storage, ScalarType compute) {
    return is_compiled_policy(storage, compute) &&
           scalar_metadata(storage).category == ScalarCategory::complex_floating;
}

} // namespace Tessaline
