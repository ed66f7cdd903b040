// SPDX-License-Identifier: Apache-2.0
#pragma once

// The versioned name of an operation, and its handle in a sealed catalogue.

#include "tessaline/export.h"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace Tessaline {

/// A dotted lower-case name and a major version; the canonical text is "tessaline.matmul@1".
class TESSALINE_API OperationId {
  public:
    /// Raises std::invalid_argument for a name that is empty, has no dot, an empty segment or a
    /// segment that is no lower-case ASCII identifier, and then for major 0.
    OperationId(std::string name, std::uint32_t major);
    OperationId(std::string_view name, std::uint32_t major);
    /// A null name counts as empty.
    OperationId(const char* name, std::uint32_t major);

    /// Reads the canonical form. Raises std::invalid_argument for any other text.
    static OperationId parse(std::string_view text);

    const std::string& name() const { return name_; }
    std::uint32_t major() const { return major_; }
    std::string canonical() const;

    friend bool operator==(const OperationId&, const OperationId&) = default;

    struct TESSALINE_API Hash {
        std::size_t operator()(const OperationId& id) const noexcept;
    };

  private:
    std::string name_;
    std::uint32_t major_;
};

/// The number of an operation in a sealed catalogue, from 1 in registration order.
enum class OperationHandle : std::uint32_t { unassigned = 0 };

} // namespace Tessaline
