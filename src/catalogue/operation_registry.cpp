// SPDX-License-Identifier: Apache-2.0
#include "tessaline/catalogue/operation_registry.h"

#include <limits>
#include <stdexcept>
#include <utility>

namespace Tessaline {

void OperationRegistry::register_operation(OperationSpec spec, RegistrationProvenance provenance) {
    if (sealed_) {
        throw std::logic_error("OperationRegistry::register_operation - catalogue is sealed");
    }
    if (contains(spec.id())) {
        throw std::invalid_argument("OperationRegistry - operation '" + spec.id().canonical() +
                                    "' is already registered");
    }
    if (spec.has_handle()) {
        throw std::invalid_argument("OperationRegistry - operation '" + spec.id().canonical() +
                                    "' belongs to a sealed catalogue");
    }
    order_.push_back(spec.id());
    try {
        registrations_.emplace(order_.back(),
                               OperationRegistration(std::move(spec), std::move(provenance)));
    } catch (...) {
        order_.pop_back();
        throw;
    }
}

void OperationRegistry::seal() {
    if (sealed_) {
        return;
    }
    constexpr std::size_t most_operations = std::numeric_limits<std::uint32_t>::max() - 1;
    if (order_.size() != registrations_.size() || order_.size() > most_operations) {
        throw std::logic_error("OperationRegistry::seal - invalid operation catalogue");
    }
    std::uint32_t handle = 0;
    for (const OperationId& id : order_) {
        registrations_.at(id).operation_.assign_handle(OperationHandle{++handle});
    }
    sealed_ = true;
}

const OperationRegistration& OperationRegistry::registration(const OperationId& id) const {
    const auto found = registrations_.find(id);
    if (found == registrations_.end()) {
        throw std::out_of_range("OperationRegistry - operation '" + id.name() +
                                "' is not registered");
    }
    return found->second;
}

const OperationSpec& OperationRegistry::operation(const OperationId& id) const {
    return registration(id).operation();
}

} // namespace Tessaline
