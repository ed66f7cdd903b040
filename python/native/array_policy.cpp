// SPDX-License-Identifier: Apache-2.0
#include "array_policy.h"

#include "tessaline/storage/numeric_policy.h"

#include <stdexcept>
#include <string>

namespace nb = nanobind;

namespace Tessaline::Python {

namespace {

constexpr nb::dlpack::dtype dlpack_bool{static_cast<std::uint8_t>(nb::dlpack::dtype_code::Bool), 8,
                                        1};

nb::dlpack::dtype_code dlpack_code(const ScalarMetadata& element) {
    if (element.type == ScalarType::BFloat16) {
        return nb::dlpack::dtype_code::Bfloat;
    }
    switch (element.category) {
    case ScalarCategory::real_floating:
        return nb::dlpack::dtype_code::Float;
    case ScalarCategory::complex_floating:
        return nb::dlpack::dtype_code::Complex;
    default:
        return nb::dlpack::dtype_code::Int;
    }
}

[[noreturn]] void refuse_policy(std::string_view compute) {
    std::string text = "Context.execute - uncompiled storage/compute dtype policy (compute=";
    text += compute.empty() ? "default" : compute;
    text += "); array storage dtypes: bool";
    for_each_numeric_policy([&text](auto policy) {
        text += std::string(", ") + scalar_metadata(policy.storage_type).name;
    });
    throw std::invalid_argument(text);
}

} // namespace

nb::dlpack::dtype dlpack_type(ScalarType type) {
    const ScalarMetadata& element = scalar_metadata(type);
    return {static_cast<std::uint8_t>(dlpack_code(element)),
            static_cast<std::uint8_t>(element.size * 8), 1};
}

ArrayPolicy select_array_policy(nb::dlpack::dtype dtype, std::string_view compute) {
    if (dtype == dlpack_bool) {
        if (!compute.empty() && compute != "int32") {
            throw std::invalid_argument(
                "Context.execute - bool outputs require int32 compute dtype");
        }
        return std::nullopt;
    }
    ArrayPolicy found;
    for_each_numeric_policy([&](auto policy) {
        const bool wanted = compute.empty() || compute == scalar_metadata(policy.compute_type).name;
        if (!found && wanted && dtype == dlpack_type(policy.storage_type)) {
            found = policy.type();
        }
    });
    if (!found) {
        refuse_policy(compute);
    }
    return found;
}

ScalarType scalar_type_named(std::string_view word) {
    for (const ScalarMetadata& row : scalar_types) {
        if (word == row.name) {
            return row.type;
        }
    }
    throw std::invalid_argument("result policy - unknown dtype " + std::string(word));
}

} // namespace Tessaline::Python
