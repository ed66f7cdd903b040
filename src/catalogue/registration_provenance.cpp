// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/registration_provenance.h"

#include "catalogue/enumeration_words.h"

#include <stdexcept>
#include <utility>

namespace Tessaline {

RegistrationProvenance::RegistrationProvenance(RegistrationOrigin origin, std::string id,
                                               std::optional<std::string> version)
    : origin_(origin),
      id_(std::move(id)),
      version_(std::move(version)) {
    if (origin_ < RegistrationOrigin::builtin || origin_ > RegistrationOrigin::plugin) {
        throw std::invalid_argument("RegistrationProvenance - origin is not recognised");
    }
    if (id_.empty()) {
        throw std::invalid_argument("RegistrationProvenance - owner ID must not be empty");
    }
    if (version_ && version_->empty()) {
        throw std::invalid_argument("RegistrationProvenance - version must not be empty");
    }
}

std::string RegistrationProvenance::text() const {
    static constexpr std::array origins{"builtin", "extension", "plugin"};
    return std::string(enumeration_word(origins, origin_)) + ":" + id_ +
           (version_ ? "@" + *version_ : "");
}

RegistrationProvenance RegistrationProvenance::builtin(std::optional<std::string> version) {
    return {RegistrationOrigin::builtin, "tessaline", std::move(version)};
}

RegistrationProvenance RegistrationProvenance::extension(std::string id) {
    return {RegistrationOrigin::extension, std::move(id), std::nullopt};
}

RegistrationProvenance RegistrationProvenance::plugin(std::string id, std::string version) {
    return {RegistrationOrigin::plugin, std::move(id), std::move(version)};
}

} // namespace Tessaline
