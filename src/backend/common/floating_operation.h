// SPDX-License-Identifier: Apache-2.0
#pragma once

// The operations that the floating kernels of a backend carry out, in the order of their indices.
// Steps hold an index, kernel tables are indexed by it, and each index has the id of its operation.

#include "tessaline/catalogue/builtin_operation_ids.h"

#include <algorithm>
#include <array>

namespace Tessaline {

enum class FloatingOperation : std::int32_t {
#define TESSALINE_LIST_OPERATION(name, index) name = index,
    TESSALINE_BUILTIN_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
};

#define TESSALINE_COUNT_OPERATION(name, index) +1
inline constexpr std::size_t floating_operation_count =
    0 TESSALINE_BUILTIN_OPERATIONS(TESSALINE_COUNT_OPERATION);
#undef TESSALINE_COUNT_OPERATION

namespace BackendRegistration {

/// The id of each FloatingOperation, by index.
inline constexpr auto floating_operations = [] {
    std::array<const OperationId*, floating_operation_count> ids{};
#define TESSALINE_LIST_OPERATION(name, index) ids.at(index) = &BuiltinOperations::name;
    TESSALINE_BUILTIN_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
    return ids;
}();
// By index: with sanitizers an address is no constant that could be compared with null.
static_assert(
    [] {
        std::array<bool, floating_operation_count> named{};
#define TESSALINE_LIST_OPERATION(name, index) named.at(index) = true;
        TESSALINE_BUILTIN_OPERATIONS(TESSALINE_LIST_OPERATION)
#undef TESSALINE_LIST_OPERATION
        return std::ranges::count(named, false) == 0;
    }(),
    "two names share an index");

} // namespace BackendRegistration

inline const OperationId& operation_id(FloatingOperation operation) {
    return *BackendRegistration::floating_operations[static_cast<std::size_t>(operation)];
}

} // namespace Tessaline
