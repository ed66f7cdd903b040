// SPDX-License-Identifier: Apache-2.0
#pragma once

// Where a registration came from.

#include "tessaline/export.h"

#include <cstdint>
#include <optional>
#include <string>

namespace Tessaline {

enum class RegistrationOrigin : std::int32_t { builtin = 0, extension = 1, plugin = 2 };

/// Origin, owner and version of a registration.
class TESSALINE_API RegistrationProvenance {
  public:
    /// Raises std::invalid_argument for an unknown origin, an empty owner and an empty version.
    RegistrationProvenance(RegistrationOrigin origin, std::string id,
                           std::optional<std::string> version);

    /// The runtime itself, under the owner "tessaline".
    static RegistrationProvenance builtin(std::optional<std::string> version);
    static RegistrationProvenance extension(std::string id);
    static RegistrationProvenance plugin(std::string id, std::string version);

    RegistrationOrigin origin() const { return origin_; }
    /// The owner of the registration.
    const std::string& id() const { return id_; }
    const std::optional<std::string>& version() const { return version_; }

    /// "builtin:tessaline@0.1.1": origin, owner and, where there is one, version.
    std::string text() const;

    friend bool operator==(const RegistrationProvenance&, const RegistrationProvenance&) = default;

  private:
    RegistrationOrigin origin_;
    std::string id_;
    std::optional<std::string> version_;
};

} // namespace Tessaline
